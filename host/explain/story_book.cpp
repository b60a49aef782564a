#include "host/explain/story_book.h"

#include <algorithm>

namespace zelhost {

// A process has its stories from its first line on.
ProcessStories& StoryBook::of(int64_t process) {
    return processes_.try_emplace(process, process, stories_, wanted_).first->second;
}

void StoryBook::take(const Entry& entry) {
    switch (entry.kind) {
        case Entry::Kind::published: of(entry.process).published(entry); return;
        // What is no line has the place of the line before it.
        case Entry::Kind::delivered: of(entry.process).delivered(); return;
        case Entry::Kind::sent: of(entry.process).sent(entry, lines_); return;
        default: break;
    }
    ++lines_;
    if (entry.kind == Entry::Kind::line && place(entry)) return;
    // The first line that could not be placed is kept as an example for people.
    if (unplaced_++ == 0) unplaced_example_ = (entry.place.empty() ? "" : entry.place + ": ") + entry.text;
}

// A process that starts takes the place of those before it, whose lines may stand in the same file.
bool StoryBook::place(const Entry& entry) {
    const Reading reading = read_text(entry.text, entry.file);
    if (reading.row == nullptr) return reading.known;
    if (reading.row->says == Says::started)
        for (auto& [id, process] : processes_)
            // The process that starts is left alone: it may start once more after a stop.
            if (id != entry.process) process.end(true);
    return of(entry.process).line({entry, lines_, reading});
}

void StoryBook::end() {
    for (auto& [id, process] : processes_) process.end(false);
    // Nearly in order, and few. Those of one line stay as they are.
    // Steps that were told late have the number of an earlier line. An insertion keeps the order of
    // equal numbers.
    for (Story& story : stories_)
        for (auto step = story.steps.begin(); step != story.steps.end(); ++step)
            std::rotate(std::ranges::upper_bound(story.steps.begin(), step, step->order, {}, &Step::order), step,
                        step + 1);
}

}  // namespace zelhost
