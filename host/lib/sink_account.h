// What became of the messages that a run handed to its sink. Each has exactly one end: acknowledged, refused for good,
// shed, or left in the buffer.
#pragma once

#include <cstdint>
#include <string>

namespace zelhost {

// The counts are of one run. They are made by the thread of the sink and copied for readers.
struct SinkAccount {
    // Beginnings.
    uint64_t left_before = 0;  // found in the buffer, from earlier runs
    uint64_t handed_over = 0;
    // Ends.
    uint64_t acknowledged = 0;
    uint64_t refused = 0;    // the server will never take them, as when they are too large
    uint64_t shed_full = 0;  // the way to the sink's thread was full
    uint64_t shed_size = 0;  // the oldest of a full buffer
    uint64_t shed_age = 0;   // too old to be of use
    uint64_t shed_disk = 0;  // the buffer could not be written
    // Where the others are.
    uint64_t in_memory = 0;
    uint64_t buffered = 0;

    // Of the above.
    uint64_t known = 0;    // acknowledged ones that the server had already
    uint64_t spilled = 0;  // those that went into the buffer, each time
    // The state.
    // In bytes.
    uint64_t buffer_bytes = 0;
    double oldest_seconds = 0;  // age of the oldest message in the buffer
    bool connected = false;
    uint64_t connections = 0;  // made so far

    // Beginnings without an end or a place, which there should be none of.
    int64_t difference() const;
};

// One row for each number, in the order in which programs see them. The keys are an interface.
struct SinkFigure {
    const char* key;
    uint64_t SinkAccount::* value;
    const char* shed = nullptr;  // for what counts as shed: the reason in a word
};
inline constexpr SinkFigure kSinkFigures[] = {
    {"left_before", &SinkAccount::left_before},
    {"handed_over", &SinkAccount::handed_over},
    {"acknowledged", &SinkAccount::acknowledged},
    {"refused", &SinkAccount::refused},
    {"shed_full", &SinkAccount::shed_full, "full"},
    {"shed_size", &SinkAccount::shed_size, "size"},
    {"shed_age", &SinkAccount::shed_age, "age"},
    {"shed_disk", &SinkAccount::shed_disk, "disk"},
    {"in_memory", &SinkAccount::in_memory},
    {"buffered", &SinkAccount::buffered},
    {"known", &SinkAccount::known},
    {"spilled", &SinkAccount::spilled},
    {"buffer_bytes", &SinkAccount::buffer_bytes},
    {"connections", &SinkAccount::connections},
};

// Two or three lines for people.
std::string sink_text(const SinkAccount& account);

}  // namespace zelhost
