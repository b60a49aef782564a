// Functions of the support library that a test lets fail, or whose call it waits for. The program's own definitions win
// over the library's.
#pragma once

#include <functional>
#include <string>

namespace e2e {

// Each holds until the next call; an empty name or 0 refuses nothing. Numbers count calls from then on, beginning at 1.
void refuse_symbol(const std::string& name);
void refuse_mutex(int number);
void refuse_thread(int number);

// Runs `hook` each time that a thread which has waited for a worker gives a mutex back.
void when_unlocked_after_join(std::function<void()> hook);

// Whether the plug-in has begun to wait for one of its workers.
bool is_joining();

}  // namespace e2e
