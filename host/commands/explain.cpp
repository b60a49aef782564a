// `zelhost explain`: what happened to an alert, by the plug-in's log or a record of a session.
#include "host/commands/explain.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include "host/commands/commands.h"
#include "host/explain/entries.h"
#include "host/explain/repeats.h"
#include "host/lib/console.h"
#include "host/lib/event_names.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"
#include "host/lib/visible.h"
#include "platform/zel_support.h"

namespace zelhost {
namespace {

// How many reasons the summary names.
constexpr size_t kMostReasons = 3;
// So many GUIDs are named when a beginning fits several.
// More names would not help a reader to choose.
constexpr size_t kMostNamed = 5;

// GUIDs are compared without regard to case.
// A GUID in capitals is the same GUID.
bool begins(std::string_view guid, std::string_view beginning) {
    return guid.size() >= beginning.size() &&
           std::ranges::equal(guid.substr(0, beginning.size()), beginning, [](char a, char b) {
               return CLI::detail::to_lower(std::string(1, a)) == CLI::detail::to_lower(std::string(1, b));
           });
}

// What is missing when lines of a level were not written.
// Each level holds its own lines and those that are more urgent.
const char* missing_below(int32_t level) {
    switch (level) {
        case ZEL_LOG_INFO: return "when the workers took an alert, its risk level, its queue and the predictions";
        case ZEL_LOG_WARN: return "all but what was filtered and shed, and failures";
        default: return "all but failures";
    }
}

// Reads all files first and answers then. The main thread alone runs it.
class Explain {
public:
    explicit Explain(const ExplainOptions& options) : options_(options) {}

    // Throws Failure when the alert is not found or the files cannot be read.
    ExitCode run() {
        read();
        return options_.all ? tell_all() : tell_one();
    }

private:
    void read() {
        // One thread reads, in the order of time.
        MergedEntries entries(options_.files, stop_);
        Entry entry;
        while (entries.next(entry)) book_.take(entry);
        // A half of the files would give a wrong answer.
        if (stop_.requested()) throw Failure("stopped by a signal");
        book_.end();
        facts_ = entries.facts();
        for (const FileFacts& file : facts_) look_at(file);
    }

    // Says what an answer from this file cannot hold.
    // A record has all levels. A log may lack lines.
    void look_at(const FileFacts& file) const {
        if (file.is_record) {
            if (file.damaged)
                console::say("{}: the record is damaged; what stands behind the damage is not told", file.path);
            else if (file.cut_short)
                console::say("{}: the end of the record is missing; its writer was killed", file.path);
            return;
        }
        if (file.lines == 0)
            throw Failure("{} holds no line of the plug-in's log and is no record of zelhost run", file.path);
        if (file.highest_level < ZEL_LOG_DEBUG)
            console::say("{} holds no line of level DEBUG, so it does not tell {}", file.path,
                         missing_below(file.highest_level));
    }

    // Every story counts here, also one without a GUID.
    ExitCode tell_all() const {
        const EndCounts counts(book_);
        print(options_.json ? counts_json(counts, book_) : counts_text(counts, book_, paint_));
        return kDone;
    }

    ExitCode tell_one() const {
        // A beginning may fit several alerts.
        std::set<std::string> guids;
        for (const Story& story : book_.stories())
            if (begins(story.guid, options_.guid)) guids.insert(story.guid);
        // A GUID that is given as a whole wins over longer ones that begin so.
        const auto whole =
            std::ranges::find_if(guids, [&](const std::string& guid) { return guid.size() == options_.guid.size(); });
        if (whole != guids.end()) guids = {*whole};
        if (guids.empty()) throw Failure("{}", nowhere_text());
        if (guids.size() > 1) {
            const auto end = std::next(guids.begin(), static_cast<ptrdiff_t>(std::min(guids.size(), kMostNamed)));
            throw Failure("{} is the beginning of {} GUIDs: {}{}", visible(options_.guid), guids.size(),
                          visible(fmt::format("{}", fmt::join(guids.begin(), end, ", "))),
                          guids.size() > kMostNamed ? " and others" : "");
        }
        OutputFile out("-");
        bool first = true;
        // One GUID may have several stories, as when an alert came twice.
        for (const Story& story : book_.stories()) {
            if (story.guid != *guids.begin()) continue;
            // A copy, because the words about a repeat are added to it.
            Story told = story;
            if (told.repeated) name_original(told);
            if (!options_.json && !std::exchange(first, false)) out.write("\n");
            out.write(options_.json ? story_json(told) : story_text(told, paint_));
        }
        out.flush();
        if (book_.unplaced() > 0)
            console::say("{} of {} lines could not be placed; the first: {}", book_.unplaced(), book_.lines(),
                         visible(book_.unplaced_example()));
        return kDone;
    }

    // Only a record has the documents that can be compared.
    static void name_original(Story& repeat) {
        const Story* const original = repeated_by(repeat);
        std::string which = "a log does not tell of which alert; a record does";
        if (original != nullptr)
            which = fmt::format("of {}", original->guid);
        else if (!repeat.document.empty())
            which = "the record does not hold the alert that it repeats";
        repeat.why += (repeat.why.empty() ? "" : "; ") + which;
    }

    // Helps with a typing mistake.
    std::string nowhere_text() const {
        std::set<std::string> guids;
        for (const Story& story : book_.stories())
            if (!story.guid.empty()) guids.insert(story.guid);
        std::string text = fmt::format("{} is in none of the {} GUIDs", visible(options_.guid), guids.size());
        text += fmt::format(" of {}", visible(fmt::format("{}", fmt::join(options_.files, ", "))));
        // Of two typing mistakes the one nearer to the end leaves more in common.
        size_t most = 0;
        const std::string* nearest = nullptr;
        for (const std::string& guid : guids) {
            const auto differ = std::ranges::mismatch(guid, options_.guid);
            const auto common = static_cast<size_t>(differ.in1 - guid.begin());
            if (common > most) nearest = &guid;
            most = std::max(most, common);
        }
        if (nearest != nullptr) text += "; the nearest is " + visible(*nearest);
        return text;
    }

    // A copy of the options. The book below asks it which GUIDs are wanted.
    const ExplainOptions options_;
    StopSignal stop_;
    const Paint paint_{options_.color, STDOUT_FILENO};
    // Documents are kept only for what may be asked for. All others would fill the memory.
    StoryBook book_{options_.all ? Wanted{} : [this](std::string_view guid) { return begins(guid, options_.guid); }};
    // What is known of each file, for messages about what an answer cannot hold.
    std::vector<FileFacts> facts_;
};

// --- the command line ---

constexpr const char* kFooter =
    R"(FILE is a log of the plug-in or a record of zelhost run --record. A log needs
level debug to tell all; its times are taken as local times. Several files are
brought into one order of time, and a log and a record of the same session are
read as one.

A log names neither threads nor, in most lines, alerts. Which alert a line is of
follows from the lines before it. A line that fits no alert is counted.
An alert whose GUID no line names, such as one that was not decoded, is counted
by --all; a record names it.)";

}  // namespace

EndCounts::EndCounts(const StoryBook& book) : stories(book.stories().size()) {
    // Sorted by the order of the ends.
    std::map<End, EndCount> by_end;
    std::map<End, std::map<EVENT_ID, uint64_t>> events;
    for (const Story& story : book.stories()) {
        EndCount& end = by_end[story.end];
        end.end = story.end;
        ++end.count;
        ++events[story.end][story.event];
        // An example with a GUID can be looked up by the reader.
        if (end.example == nullptr || (end.example->guid.empty() && !story.guid.empty())) end.example = &story;
    }
    for (auto& [end, count] : by_end) {
        count.events.assign(events[end].begin(), events[end].end());
        ends.push_back(std::move(count));
    }
    // The pointers lead into the list, which does not grow any more.
    for (const EndCount& end : ends)
        if (words_of(end.end).loss) reasons.push_back(&end);
    // Of equal ones the first in the list of ends.
    std::ranges::sort(reasons, [](const EndCount* one, const EndCount* other) {
        return one->count != other->count ? one->count > other->count : one < other;
    });
    reasons.resize(std::min(reasons.size(), kMostReasons));
}

// The kind is told by what the story knows.
std::string kind_text(const Story& story) {
    if (story.on_demand) return "trace that the host asked for";
    if (story.event == 0) return "alert of an unknown event";
    return fmt::format("{}, event {}", event_name(story.event), story.event);
}

Action prepare_explain(CLI::App& app) {
    const auto options = std::make_shared<ExplainOptions>();
    app.footer(kFooter);
    app.add_option("GUID", options->guid, "The alert to explain: its GUID or the beginning of it; not with --all")
        ->type_name("");
    app.add_option("FILE", options->files, "Logs and records; - or none for a log on standard input");
    app.add_flag("--all", options->all, "Count how all alerts ended, and name the most frequent reasons of a loss");
    app.add_flag("--json", options->json, "One JSON object on one line, for programs");
    add_color_option(app, options->color);
    // The parser takes the first word for the GUID. With --all there is none.
    app.parse_complete_callback([options] {
        if (!options->all && options->guid.empty()) throw CLI::RequiredError("GUID");
        // All that stands there are files.
        if (!options->all || options->guid.empty()) return;
        options->files.insert(options->files.begin(), std::exchange(options->guid, {}));
    });
    return [options] {
        if (options->files.empty()) options->files.emplace_back("-");
        return Explain(*options).run();
    };
}

}  // namespace zelhost
