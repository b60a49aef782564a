// What an alert's message costs with the libraries alone: the work that no road from document to message can do
// without.
#pragma once

#include <string>

#include "decode/records.h"
#include "retrace.pb.h"

namespace bench {

// The first event of each kind, decoded. Its values serve all events, so that they are ready in the cache and no second
// heap of strings lies between the blocks of the message.
class Ready {
public:
    Ready();
    ~Ready();
    Ready(const Ready&) = delete;
    Ready& operator=(const Ready&) = delete;

    // The message of a document of this many events.
    void fill(int events, vorn_retrace::vorn_trace_info& info) const;

private:
    ST_BUF_DATA data_;
};

// Parses the document, looks each key up once, fills the message, sizes and serialises it, and frees all of it. No
// checks, records, log lines, queue or thread. Returns the size of the message.
size_t baseline(const Ready& ready, const std::string& text, int events);

}  // namespace bench
