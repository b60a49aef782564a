#include "host/explain/repeats.h"

#include "host/lib/checker.h"
#include "platform/zel_support.h"

namespace zelhost {

// A checker that has seen one document alone calls the other a repeat only because of it.
const Story* repeated_by(const Story& repeat) {
    if (repeat.document.empty()) return nullptr;
    for (const Story* const earlier : repeat.before) {
        if (earlier->document.empty()) continue;
        // A new checker for each pair. It must not know any other document.
        Checker checker(ZEL_LOG_ERROR);
        checker.check(earlier->event, earlier->document);
        if (checker.check(repeat.event, repeat.document).verdict == ZELCHECK_REPEAT) return earlier;
    }
    return nullptr;
}

}  // namespace zelhost
