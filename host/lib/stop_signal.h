// SIGINT and SIGTERM as a file to be polled, so that every wait of the host ends when one comes.
#pragma once

#include <chrono>

namespace zelhost {

// Made before any other thread starts: threads inherit the signal mask. One in a process.
// Owns the descriptor. Any thread may sleep on it.
class StopSignal {
public:
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    // Readable once a signal has come; stays so.
    int descriptor() const { return descriptor_; }
    bool requested() const { return sleep(std::chrono::milliseconds{0}); }
    // Ends every wait, as a signal from outside does.
    void request() const;
    // Waits that long, or until a signal has come: true then.
    bool sleep(std::chrono::milliseconds time) const;

private:
    // A descriptor of signals that is only polled and never read.
    int descriptor_;
};

}  // namespace zelhost
