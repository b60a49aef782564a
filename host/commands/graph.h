// `zelhost graph`: the behaviour chain of a finished trace as a picture.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vorn_retrace {
class vorn_trace_info;
}

namespace zelhost {

// Takes a finished trace out of the bytes of a file: the first event 770 that has a chain, or that with the GUID, of
// lines as `zelhost run` writes them, or a serialised message. `source` names the file for people. Says of each line
// that it cannot read which it is, and returns how many there were before the trace. Throws Failure when there is no
// such trace.
// `trace` is a new message, and holds the trace afterwards.
size_t find_trace(std::string_view bytes, const std::string& guid, const std::string& source,
                  vorn_retrace::vorn_trace_info& trace);

}  // namespace zelhost
