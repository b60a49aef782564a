// Functions of the support library that a test lets fail, or whose call it waits for. The program's own definitions win
// over the library's.
#pragma once

#include <atomic>
#include <functional>
#include <string_view>

namespace e2e {

// A symbol that is not found.
inline std::atomic<const char*> refused_symbol{""};
// How many calls from now on the one is that fails; 0 refuses nothing.
inline std::atomic<int> refused_mutex{0}, refused_thread{0};

// Runs each time that a thread which has waited for a worker gives a mutex back.
inline std::function<void()> after_join_and_unlock;

// Whether the plug-in has begun to wait for one of its workers.
inline std::atomic<bool> is_joining{false};

}  // namespace e2e
