// All stories that logs and records tell. The book owns them; one thread fills it and reads it afterwards.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>

#include "host/explain/entries.h"
#include "host/explain/process_stories.h"
#include "host/explain/story.h"

namespace zelhost {

// Gets the entries in order of time and hands each to its process.
class StoryBook {
public:
    // `wanted` may be empty; then no documents are kept.
    explicit StoryBook(Wanted wanted) : wanted_(std::move(wanted)) {}

    // Takes the next entry. Entries of kinds other than a line may come between two lines.
    void take(const Entry& entry);
    // After the last entry: what has no end yet still waits. Steps stand in order then.
    void end();

    // In the order in which they began.
    const std::deque<Story>& stories() const { return stories_; }
    // How many lines were read, the foreign ones included.
    uint64_t lines() const { return lines_; }
    // Lines that could not be placed, and the first of them.
    uint64_t unplaced() const { return unplaced_; }
    const std::string& unplaced_example() const { return unplaced_example_; }

private:
    // Makes the process when it is new.
    ProcessStories& of(int64_t process);
    // False when the line is unknown or belongs to no story.
    bool place(const Entry& entry);

    const Wanted wanted_;
    std::deque<Story> stories_;
    std::map<int64_t, ProcessStories> processes_;
    // Also the number of the last line, which gives steps their order.
    uint64_t lines_ = 0;
    uint64_t unplaced_ = 0;
    std::string unplaced_example_;
};

}  // namespace zelhost
