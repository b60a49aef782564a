// `zelhost graph`: the behaviour chain of a finished trace as a picture.
#pragma once

#include <string>
#include <string_view>

namespace zelhost {

// A finished trace among other things in a file.
struct FoundTrace {
    std::string bytes;         // a vorn_trace_info on the wire, valid as such
    size_t lines_skipped = 0;  // that could not be read, before the trace was found
};

// Takes the trace out of the bytes of a file: the first event 770, or that with the GUID, of lines as `zelhost run`
// writes them, or a serialised message. `source` names the file for people. Says of each line that it cannot read which
// it is. Throws Failure when there is no such trace.
FoundTrace find_trace(std::string_view bytes, const std::string& guid, const std::string& source);

// A message on the wire whose texts may be no UTF-8; what is wrong in them becomes U+FFFD. Nothing when it is no
// message.
bool repair_texts(std::string& bytes);

}  // namespace zelhost
