// When each alert of a load was due, until its report comes back.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace zelhost {

// Alerts are known by the numbers of their GUIDs: the upper half is that of the mixture, the lower half counts its
// alerts. Room is bounded, because many alerts never come back: one that was noted kRoom alerts ago is forgotten. Any
// thread.
class DueTimes {
public:
    using Clock = std::chrono::steady_clock;

    // For mixtures with the numbers 1 to `mixtures`.
    explicit DueTimes(uint32_t mixtures) : slots_(size_t{mixtures} * kRoom) {}

    // Notes when the alert with this number was due. An older alert at the same place is forgotten.
    // Numbers come from the mixtures that the constructor was told of.
    void note(uint64_t number, Clock::time_point due) {
        const std::lock_guard lock(mutex_);
        slots_[place(number)] = {number, due};
    }
    // Once for each number that was noted.
    std::optional<Clock::time_point> take(uint64_t number) {
        // A slot is found by the remainder of the number, so the whole number is compared. A report
        // of an alert that is not of this load must not take the time of another.
        const std::lock_guard lock(mutex_);
        if (place(number) >= slots_.size() || slots_[place(number)].number != number) return {};
        slots_[place(number)].number = kNone;
        return slots_[place(number)].due;
    }

private:
    // More than are between the bus and the report at any time, those included that are refused meanwhile.
    static constexpr uint64_t kRoom = 1 << 16;
    static constexpr uint64_t kNone = 0;  // no mixture has the number 0

    // One alert that has not come back, or none when the number is kNone.
    struct Slot {
        uint64_t number = kNone;
        Clock::time_point due;
    };

    // Beyond the end for a number that no mixture makes.
    static size_t place(uint64_t number) { return ((number >> 32) - 1) * kRoom + number % kRoom; }

    // Publishers note, and the bus thread takes.
    std::mutex mutex_;
    std::vector<Slot> slots_;
};

}  // namespace zelhost
