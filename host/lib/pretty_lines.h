// What the plug-in gives out, as lines for people: time, kind, severity, rule, process, what became of it.
#pragma once

#include "host/lib/color.h"
#include "host/lib/event_lines.h"

namespace zelhost {

// Only reads its members once it is set up, so several threads may ask at once.
class PrettyLines : public EventLines {
public:
    // `descriptor` is where the lines go: on a terminal they are cut to its width.
    PrettyLines(const Paint& paint, int descriptor) : paint_(paint), descriptor_(descriptor) {}

    // Whether the plug-in traces at all, as its settings say. Called before the first line.
    void set_tracing(bool on) { tracing_ = on; }

    std::string event(const ST_PB_EVENT& event) const override;
    std::string memory_check(const ST_MEM_DETECT_INFO& info) const override;
    std::string answer(int code, uint32_t context, const char* buffer, uint32_t size) const override;
    std::string report(std::string_view module, std::string_view text) const override;
    // Events that the alarm worker ends without a report, and traces that bring none. What is shed or merged before
    // that comes too fast for lines.
    std::string remark(const LogLine& line) const override;

private:
    struct Columns;
    std::string line(const Columns& columns) const;

    const Paint paint_;
    const int descriptor_;
    bool tracing_ = true;
};

}  // namespace zelhost
