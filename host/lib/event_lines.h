// How a run shows what the plug-in gives out: one line for each thing, with its end.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/lib/figures.h"
#include "platform/native_payloads.h"

namespace zelhost {

// Any thread may ask for a line.
// One object serves a whole run. All functions are called with what the plug-in gave out; the
// pointers are valid during the call.
class EventLines {
public:
    virtual ~EventLines() = default;

    // Events 769, 770 and 771.
    virtual std::string event(const ST_PB_EVENT& event) const = 0;
    // Event 2305.
    virtual std::string memory_check(const ST_MEM_DETECT_INFO& info) const = 0;
    // The answer to an on-demand trace. One without a result has a null buffer and size 0.
    virtual std::string answer(int code, uint32_t context, const char* buffer, uint32_t size) const = 0;
    // `text` is what the module's report callback has written.
    virtual std::string report(std::string_view module, std::string_view text) const = 0;
    // What the log says of an event that gives no line otherwise. Empty: nothing to show.
    virtual std::string remark(const LogLine&) const { return {}; }
};

}  // namespace zelhost
