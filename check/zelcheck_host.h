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

/* --- agent folders --- */

enum zelcheck_origin {
    ZELCHECK_FROM_FILE = 0,
    ZELCHECK_FROM_DEFAULT = 1,  // the default, since what is in the file does not count or is missing
    ZELCHECK_FROM_ZERO = 2      // 0, since file or key is missing
};

// One key of a settings file, and what it would mean at a start.
struct zelcheck_setting {
    const char* file;  // from the agent's root
    const char* section;
    const char* key;
    uint64_t value;  // in force after a start
    enum zelcheck_origin origin;
    const char* reason;  // why the value is not what stands in the file; "" when it is
    const char* text;    // as it stands in the file; null when there is none
    uint64_t otherwise;  // the default
    uint64_t lowest;
    uint64_t highest;
    int32_t base;  // 0: decimal, hexadecimal and octal forms; 10: decimal alone
};

// One function that the plug-in looks up in a library.
struct zelcheck_function {
    const char* name;
    int32_t found;  // 1 or 0
};

// A library that the plug-in opens.
struct zelcheck_library {
    const char* title;
    const char* path;    // from the agent's root
    int32_t required;    // a start fails without it
    int32_t used;        // 0: pure mode does without
    int32_t complete;    // it can be opened and has all functions
    const char* reason;  // the loader's words when it cannot be opened, else null
    const char* use;     // what it is for
    const struct zelcheck_function* functions;
    size_t function_count;
};

// A file whose presence alone changes what the plug-in does.
struct zelcheck_flag {
    const char* path;
    int32_t present;
    const char* effect;  // of being there or of not being there, as it is
};

// What a start of the plug-in in an agent folder would do, as far as that can be known without one.
struct zelcheck_folder {
    int32_t starts;                     // 1 when no step that was looked at fails
    const struct zelcheck_line* lines;  // ERROR and WARN lines of a start, up to the failure
    size_t line_count;
    size_t failure;  // the first of the lines that say why; line_count when the start succeeds

    int32_t pure_mode;
    const char* mode_reason;
    int32_t tracing;               // traces are made
    const uint32_t* subscription;  // the events that the bus is told
    size_t subscription_count;
    const char* report_version;  // in trace reports
    int32_t version_from_file;
    const char* report_agent_id;

    const struct zelcheck_setting* settings;
    size_t setting_count;
    const struct zelcheck_library* libraries;
    size_t library_count;
    const struct zelcheck_flag* flags;
    size_t flag_count;
};

// Null when the file may be opened; otherwise the reason, which is valid until the next call. A FIFO would hold the
// look up, and a bad library may end the process that opens it.
typedef const char* (*zelcheck_trial_t)(void* context, const char* path);

// Looks at the agent whose root is `root`, an absolute path. It starts nothing and writes nothing, but it opens the
// agent's libraries, which runs their constructors. Each file is tried before it is opened. -1 also when a file that a
// start opens may not be opened: that was the last trial. Not while a checker is open.
int32_t zelcheck_folder_open(const char* root, zelcheck_trial_t trial, void* context,
                             const struct zelcheck_folder** out);
void zelcheck_folder_close(const struct zelcheck_folder* folder);

/* --- keys of alert documents --- */

// What the agent takes from the value of a key.
enum zelcheck_kind {
    ZELCHECK_TEXT = 0,
    ZELCHECK_DECIMAL_TEXT = 1,  // a string of decimal digits
    ZELCHECK_INT32 = 2,         // these four from any number, cut to the range
    ZELCHECK_UINT32 = 3,
    ZELCHECK_INT64 = 4,
    ZELCHECK_UINT64 = 5,
    ZELCHECK_TEXTS = 6,    // the strings of a list; all else is passed over
    ZELCHECK_OBJECT = 7,   // an object with keys of its own
    ZELCHECK_OBJECTS = 8,  // a list of objects, or an object whose values are taken for one; all else is an empty list
};

struct zelcheck_key {
    const char* name;   // as the engines spell it; the agent ignores case
    const char* words;  // a sentence about its value
    enum zelcheck_kind kind;
    int32_t needed;       // 1: the object that lacks it, or has another type there, is refused
    const char* members;  // of an object or objects: which tables have their keys, otherwise null
};

// Keys of one kind of object. Several tables may speak of the same object.
struct zelcheck_key_table {
    const char* object;    // "document" is the outermost one
    const char* words;     // a sentence about the object; of an event type, what happened
    uint32_t alert_types;  // bit N: it holds in documents of alert type N
    uint32_t event_type;   // the keys stand in an event of this type; 0: in every such object
    int32_t taken;         // 0: a document with an event of this type is refused
    const struct zelcheck_key* keys;
    size_t key_count;
};

// The keys that the agent reads, by its own tables, with the event types behind all others. The tables never change,
// and they are valid until the library is closed.
int32_t zelcheck_keys(const struct zelcheck_key_table** tables, size_t* count);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
