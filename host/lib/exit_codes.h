// The exit statuses of zelhost. Every command takes its codes from here; help texts, manual pages and README list this
// table.
#pragma once

namespace zelhost {

// A code that was given once keeps its meaning: scripts test for it.
enum ExitCode { kDone = 0, kFailed = 1, kUsage = 2, kLinesSkipped = 3, kMaxWaitPassed = 4 };

// What a code means. Rows without a command hold for all; a command's own row says what else the code means there.
struct ExitCodeWords {
    ExitCode code;
    const char* words;
    const char* command = "";
};
inline constexpr ExitCodeWords kExitCodes[] = {
    {kDone, "done"},
    {kFailed, "failed; the line on standard error says why"},
    {kUsage, "a wrong command line"},
    {kLinesSkipped, "lines of the input were skipped", "run"},
    {kMaxWaitPassed, "--max-wait passed", "run"},
};

}  // namespace zelhost
