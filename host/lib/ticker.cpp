#include "host/lib/ticker.h"

#include <utility>

namespace zelhost {

Ticker::Ticker(std::chrono::milliseconds period, std::function<void()> act)
    : thread_([this, period, act = std::move(act)](const std::stop_token& stop) {
          std::unique_lock lock(mutex_);
          // The wait ends early only when the object ends.
          while (!ended_.wait_for(lock, stop, period, [&stop] { return stop.stop_requested(); })) act();
      }) {}

}  // namespace zelhost
