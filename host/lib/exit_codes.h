// The exit statuses of zelhost. Every command takes its codes from here; help texts, manual pages and
// docs/zelhost.md list this table.
#pragma once

namespace zelhost {

// A code that was given once keeps its meaning: scripts test for it.
enum ExitCode { kDone = 0, kFailed = 1, kUsage = 2, kLinesSkipped = 3, kMaxWaitPassed = 4 };

// What a code means. A row without commands holds for all; others say what else the code means for theirs.
// One code may have several rows: a common one and others for single commands.
struct ExitCodeWords {
    ExitCode code;
    const char* words;
    const char* commands = "";  // with blanks between
};
// Rows of one code stand side by side.
inline constexpr ExitCodeWords kExitCodes[] = {
    {kDone, "done"},
    {kFailed, "failed, and a line on standard error says why"},
    {kFailed, "a document does not come through", "check"},
    {kFailed, "a message is damaged", "decode"},
    {kFailed, "a start would fail", "status"},
    {kFailed, "what came out is not what the record has", "replay"},
    {kFailed, "the account does not close", "load"},
    {kUsage, "a wrong command line"},
    {kUsage, "a file cannot be read", "check"},
    {kLinesSkipped, "lines of the input were skipped", "run graph"},
    {kMaxWaitPassed, "--max-wait passed", "run load"},
};

}  // namespace zelhost
