// What the files of `zelhost explain` share: what the command line asks for, and the two forms of the answer.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/explain/story.h"
#include "host/explain/story_book.h"
#include "host/lib/color.h"

namespace zelhost {

// Filled by the parser. The command line has either a GUID or --all.
struct ExplainOptions {
    std::string guid;                // or its beginning; empty with `all`
    std::vector<std::string> files;  // "-" is standard input
    bool all = false;
    bool json = false;
    ColorMode color = ColorMode::automatic;
};

// How many events ended in one way.
// One row of the summary.
struct EndCount {
    End end;
    uint64_t count = 0;
    std::vector<std::pair<EVENT_ID, uint64_t>> events;  // by kind, in order of their ids
    const Story* example = nullptr;                     // one with a GUID if there is any
};

// The sums over all stories.
// Borrows the stories of the book, which must outlive it.
struct EndCounts {
    explicit EndCounts(const StoryBook& book);

    uint64_t stories = 0;
    std::vector<EndCount> ends;            // those that came, in the order of the ends
    std::vector<const EndCount*> reasons;  // losses, the most frequent first, at most three
};

// Words for the kind of the event.
// The text lives in the result. For people.
std::string kind_text(const Story& story);

// All texts end with a line end.
std::string story_text(const Story& story, const Paint& paint);
std::string counts_text(const EndCounts& counts, const StoryBook& book, const Paint& paint);
// One line each.
std::string story_json(const Story& story);
std::string counts_json(const EndCounts& counts, const StoryBook& book);

}  // namespace zelhost
