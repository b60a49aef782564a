// The face of libzelcheck.so: the plug-in's own code, without bus, threads and agent, for questions about a document, a
// folder or a key. Only zelhost uses it.
//
// One thread at a time may call these functions. Nothing that they give out is the caller's to free. A function that
// returns int32_t answers 0, or -1 when memory ran out.
#pragma once

#include <stddef.h>
#include <stdint.h>

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

/* --- alert documents --- */

enum zelcheck_verdict {
    ZELCHECK_ACCEPTED = 0,  // the agent reports the alert
    ZELCHECK_REPEAT = 1,    // accepted, and marked as a repeat: an earlier document had the same rules and images
    ZELCHECK_SKIPPED = 2,   // all rules have the status "Trigger", so there is nothing to report
    ZELCHECK_REFUSED = 3,   // the alert is lost
    ZELCHECK_FATAL = 4      // the document would end the agent's process
};

// The reason of a refusal for which nothing better is known, as when memory ran out.
#define ZELCHECK_UNEXPLAINED "the agent's log says why"

// Something about one place of a document.
struct zelcheck_finding {
    const char* reason;  // a sentence without its end, for people
    const char* path;    // "rule[0].event[2].SubjectPid"; for a missing key the object that lacks it; "" is the root
    uint64_t offset;     // the byte, from 0: of the value, of the object that lacks a key, or of the bad byte in a text
    uint64_t size;       // bytes from there on that are meant; 0 at the document's end, and where all of it is meant
};

// A line that the plug-in logs for the document.
struct zelcheck_line {
    int32_t level;     // ZEL_LOG_ERROR to ZEL_LOG_DEBUG
    const char* text;  // behind the prefix of process, level, file and line
};

// All of it is valid until the next call with the same checker.
struct zelcheck_result {
    enum zelcheck_verdict verdict;
    const char* guid;                         // as the agent keeps it, 37 characters at most; null when there is none
    const struct zelcheck_finding* refusal;   // null unless the verdict is refused or fatal
    const struct zelcheck_finding* warnings;  // in the order of their places
    size_t warning_count;
    const struct zelcheck_line* lines;  // in the order in which they are logged
    size_t line_count;
};

struct zelcheck;

// A checker remembers the documents that it has seen, so that a repeat is known. It keeps the lines of a level and
// those that are more urgent. There may be one at a time.
int32_t zelcheck_open(int32_t log_level, struct zelcheck** out);
void zelcheck_close(struct zelcheck* checker);

// What becomes of a document that comes in event 1536 or 1538. The text may hold any bytes; it is copied. `result`
// receives a record of the checker.
int32_t zelcheck_document(struct zelcheck* checker, uint32_t event_id, const char* text, uint64_t size,
                          const struct zelcheck_result** result);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
