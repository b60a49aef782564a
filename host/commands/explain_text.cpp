// The answer for people.
#include <fmt/format.h>

#include <utility>

#include "host/commands/explain.h"
#include "host/lib/event_names.h"
#include "host/lib/local_time.h"
#include "host/lib/visible.h"

namespace zelhost {
namespace {

// "19:41:03.909", with the date before it when it is another one than that of the last time.
// `date` holds the date that was shown last. A date is shown only where it changes.
std::string clock_text(int64_t at_us, std::string& date) {
    if (at_us == kNoTime) return "-";
    const std::string text = local_time(at_us, true);
    const size_t blank = text.find(' ');
    const bool other = text.substr(0, blank) != date;
    date = text.substr(0, blank);
    return other ? text : text.substr(blank + 1);
}

// Seconds after the first step, with a sign.
std::string since_text(int64_t at_us, int64_t from_us) {
    if (at_us == kNoTime || from_us == kNoTime) return "";
    return fmt::format("{:+.3f} s", static_cast<double>(at_us - from_us) / 1e6);
}

// A GUID comes from a document and may hold any bytes.
std::string guid_or_note(const Story& story) { return story.guid.empty() ? "no GUID is told" : visible(story.guid); }

// What is still open is neither good nor bad.
Tint tint_of(End end) {
    if (words_of(end).loss) return Tint::error;
    return end == End::waiting || end == End::untold ? Tint::warning : Tint::good;
}

}  // namespace

// One block: what it is, its steps, its end.
std::string story_text(const Story& story, const Paint& paint) {
    std::string text =
        paint(Tint::bold, fmt::format("{}: {}{}", guid_or_note(story), kind_text(story),
                                      story.process == 0 ? "" : fmt::format(", process {}", story.process)));
    text += '\n';
    // Times are told from the first step on.
    const int64_t from_us = story.steps.empty() ? kNoTime : story.steps.front().at_us;
    std::string date;
    for (const Step& step : story.steps)
        text +=
            fmt::format("  {}  {:>10}  {}\n", paint(Tint::faint, fmt::format("{:>23}", clock_text(step.at_us, date))),
                        since_text(step.at_us, from_us), visible(step.text));
    const char* const words = words_of(story.end).words;
    text += fmt::format("end: {}", paint(tint_of(story.end), words));
    // What waits says where.
    if (!story.why.empty()) text += (story.end == End::waiting ? " " : ": ") + visible(story.why);
    return text + '\n';
}

// The numbers stand in a column.
std::string counts_text(const EndCounts& counts, const StoryBook& book, const Paint& paint) {
    std::string text = fmt::format("{} alerts and other events in {} lines\n", counts.stories, book.lines());
    for (const EndCount& end : counts.ends) {
        text += fmt::format("{:>8}  {}", end.count, paint(tint_of(end.end), words_of(end.end).words));
        text += " (";
        const char* comma = "";
        for (const auto& [event, count] : end.events) {
            text += fmt::format("{}{}: {}", std::exchange(comma, ", "),
                                event == 0 ? "unknown event" : std::to_string(event), count);
        }
        text += ")\n";
    }
    text += counts.reasons.empty() ? "nothing was lost\n" : "most frequent reasons of a loss\n";
    // A reason without an example would say little.
    for (const EndCount* reason : counts.reasons) {
        const Story& example = *reason->example;
        text +=
            fmt::format("{:>8}  {}, for example {}", reason->count, words_of(reason->end).words, guid_or_note(example));
        if (example.guid.empty() && !example.steps.empty() && example.steps.front().at_us != kNoTime)
            text += " of the one taken at " + local_time(example.steps.front().at_us, true);
        text += (example.why.empty() ? "" : ": " + visible(example.why)) + "\n";
    }
    if (book.unplaced() == 0) return text + "every line was placed\n";
    return text + fmt::format("{} lines could not be placed; the first: {}\n", book.unplaced(),
                              visible(book.unplaced_example()));
}

}  // namespace zelhost
