// Does something again and again beside the main thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace zelhost {

// Owns its thread, which ends with the object. `act` runs on that thread alone and must not throw.
class Ticker {
public:
    // The first call of `act` comes after one period.
    Ticker(std::chrono::milliseconds period, std::function<void()> act);

private:
    std::mutex mutex_;
    std::condition_variable_any ended_;  // notified by nobody but a stop request
    std::jthread thread_;                // the last, so that it is joined before the others end
};

}  // namespace zelhost
