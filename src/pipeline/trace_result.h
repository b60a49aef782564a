// A result buffer of the trace module between the call that made it and the event that carries it away.
#pragma once

#include <cstdint>
#include <utility>

#include "common/trc_functions.h"

class TraceResult {
public:
    TraceResult() = default;
    ~TraceResult() {
        if (data_ != nullptr) release_trace_result(data_);
    }
    TraceResult(const TraceResult&) = delete;
    TraceResult& operator=(const TraceResult&) = delete;

    // Calls a function of the module, which may leave a result whatever its code is. Returns the code.
    int32_t take(trace_event_work_t work, const char* input, uint64_t input_size) {
        return work(input, static_cast<uint32_t>(input_size), &data_, &size_);
    }

    char* data() const { return data_; }
    uint32_t size() const { return size_; }
    // The buffer belongs to an event now.
    void hand_over() { data_ = nullptr; }
    // Gives the buffer back to the module, which is told of a null one too.
    void give_back() { release_trace_result(std::exchange(data_, nullptr)); }

private:
    char* data_ = nullptr;
    uint32_t size_ = 0;
};
