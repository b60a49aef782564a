// The plug-in's own verdict on alert documents, from libzelcheck.so.
#pragma once

#include <cstdint>
#include <string_view>

#include "check/zelcheck_host.h"

namespace zelhost {

// Remembers the documents that it has seen, so that it knows a repeat. One at a time, one thread.
// Owns the checker behind it. The library is linked and not loaded from an agent folder.
class Checker {
public:
    // Keeps the log lines of a level and those that are more urgent. Throws Failure when there is no memory.
    explicit Checker(int32_t log_level);
    ~Checker();
    Checker(const Checker&) = delete;
    Checker& operator=(const Checker&) = delete;

    // What becomes of a document of event 1536 or 1538; valid until the next call. Throws std::bad_alloc.
    const zelcheck_result& check(uint32_t event_id, std::string_view document);

private:
    zelcheck* checker_ = nullptr;
};

}  // namespace zelhost
