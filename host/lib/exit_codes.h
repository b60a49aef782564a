// The exit statuses of zelhost. Every command takes its codes from here, and every help text lists this table.
#pragma once

namespace zelhost {

// A code that was given once keeps its meaning: scripts test for it.
enum ExitCode { kDone = 0, kFailed = 1, kUsage = 2, kLinesSkipped = 3, kMaxWaitPassed = 4 };

struct ExitCodeWords {
    ExitCode code;
    const char* words;
};
inline constexpr ExitCodeWords kExitCodes[] = {
    {kDone, "done"},
    {kFailed, "failed"},
    {kUsage, "wrong usage"},
    {kLinesSkipped, "lines of the input were skipped"},
    {kMaxWaitPassed, "--max-wait passed"},
};

}  // namespace zelhost
