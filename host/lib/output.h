// What the plug-in gives out, as JSON lines.
#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/native_payloads.h"

namespace zelhost {

// Any thread may write; lines do not mix. After a write has failed nothing more is written, and `error` says why.
class Output {
public:
    // "-" is standard output. Throws Failure when the file cannot be opened.
    explicit Output(const std::string& path);

    // Events 769, 770 and 771.
    void trace_event(const ST_PB_EVENT& event);
    // Event 2305.
    void memory_check(const ST_MEM_DETECT_INFO& info);
    // The answer to an on-demand trace.
    void callback(int code, uint32_t context, const char* buffer, uint32_t size);
    void report(std::string_view module, std::string_view text);

    // Empty while all is well.
    std::string error() const;

private:
    void write(const std::string& line);

    std::string path_;
    std::unique_ptr<FILE, int (*)(FILE*)> file_;
    mutable std::mutex mutex_;
    std::string error_;  // under the mutex
};

}  // namespace zelhost
