// What the plug-in gives out, as JSON lines for programs.
#pragma once

#include "host/lib/event_lines.h"

namespace zelhost {

// Keeps no state, so several threads may ask at once.
class JsonLines : public EventLines {
public:
    std::string event(const ST_PB_EVENT& event) const override;
    std::string memory_check(const ST_MEM_DETECT_INFO& info) const override;
    std::string answer(int code, uint32_t context, const char* buffer, uint32_t size) const override;
    std::string report(std::string_view module, std::string_view text) const override;
};

}  // namespace zelhost
