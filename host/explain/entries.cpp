#include "host/explain/entries.h"

#include <algorithm>
#include <utility>

namespace zelhost {
namespace {

// A line has its time in a log from before it was written and in a record from when it came; both clocks may be read
// late on a busy machine.
// A line of a log and one of a record are taken for the same only when their times are at most this
// far apart, in microseconds.
constexpr int64_t kApartUs = 1'000'000;

}  // namespace

// Reads one entry more. False at the end of the source.
bool MergedEntries::Head::read() {
    Entry entry;
    // An end is noted, so that a pipe is not read once more after its end.
    if (ended || !source->next(entry)) {
        ended = true;
        return false;
    }
    read_us = entry.at_us;
    // The texts of all lines that wait are counted. So it takes no search to see that a line is not
    // among them.
    if (entry.kind == Entry::Kind::line) ++texts[entry.text];
    ahead.push_back(std::move(entry));
    return true;
}

// True when at least one entry is there; reads on to the first that is later.
bool MergedEntries::Head::reads_to(int64_t at_us) {
    while (read_us <= at_us && read()) {
    }
    return !ahead.empty();
}

// Gives out the oldest entry. There must be one.
Entry MergedEntries::Head::take() {
    Entry entry = std::move(ahead.front());
    ahead.pop_front();
    if (entry.kind == Entry::Kind::line) {
        const auto text = texts.find(entry.text);
        if (--text->second == 0) texts.erase(text);
    }
    return entry;
}

// What is no line has the process of the lines around it, which is one in all of a record.
Entry MergedEntries::Head::take_of_process() {
    const auto is_line = [](const Entry& entry) { return entry.kind == Entry::Kind::line; };
    // The entries of a record name no process. The next line that comes does, since all of a record
    // is of one process.
    while (process == 0 && std::ranges::none_of(ahead, is_line) && read()) {
    }
    if (const auto line = std::ranges::find_if(ahead, is_line); line != ahead.end()) process = line->process;
    Entry entry = take();
    entry.process = process;
    return entry;
}

MergedEntries::MergedEntries(const std::vector<std::string>& paths, const StopSignal& stop) {
    // Records and logs are kept apart, because only a record knows the thread of a line.
    for (const std::string& path : paths) {
        Head head{open_source(path, stop), {}};
        (head.source->facts().is_record ? records_ : logs_).push_back(std::move(head));
    }
}

// The source whose next entry is the oldest. An entry without a time follows the one before it.
MergedEntries::Head* MergedEntries::earliest(std::vector<Head>& heads) {
    Head* found = nullptr;
    for (Head& head : heads) {
        if (head.ahead.empty() && !head.read()) continue;
        // Of sources with the same time the one that was named first comes first.
        if (found == nullptr || head.ahead.front().at_us < found->ahead.front().at_us) found = &head;
    }
    return found;
}

// Whether a line of the record that may be this one waits for its turn. Both hold the lines of a session in one order.
bool MergedEntries::tells_of(Head& record, const Entry& line) {
    // The record is read on far enough to hold the line if it has it.
    record.reads_to(line.at_us + kApartUs);
    if (!record.texts.contains(line.text)) return false;
    const auto found = std::ranges::find(record.ahead, line.text, &Entry::text);
    return found->at_us - line.at_us <= kApartUs && line.at_us - found->at_us <= kApartUs;
}

bool MergedEntries::next(Entry& entry) {
    Head* const log = earliest(logs_);
    Head* const record = earliest(records_);
    if (log == nullptr && record == nullptr) return false;
    // Without a log there is nothing to compare the record with.
    if (log == nullptr) {
        entry = record->take_of_process();
        return true;
    }
    const Entry& line = log->ahead.front();
    if (record != nullptr && line.kind == Entry::Kind::line) {
        // The line may stand in any of the records. The first record that has it tells the thread.
        for (Head& told : records_) {
            if (!tells_of(told, line)) continue;
            Entry from_record = told.take_of_process();
            // Entries that stand before the line in the record go out first. So the order around
            // the line stays that of the record.
            const bool same = from_record.kind == Entry::Kind::line && from_record.text == line.text;
            if (same) {
                // The line of the log is shown, because it has a place in a file that a reader can
                // look up.
                entry = log->take();
                entry.worker = from_record.worker;
            } else {
                entry = std::move(from_record);
            }
            return true;
        }
    }
    // No record has the line at this moment. A record whose next entry is clearly older goes first.
    const bool record_lags = record != nullptr && record->ahead.front().at_us + kApartUs < line.at_us;
    entry = record_lags ? record->take_of_process() : log->take();
    return true;
}

std::vector<FileFacts> MergedEntries::facts() const {
    std::vector<FileFacts> all;
    for (const std::vector<Head>* heads : {&logs_, &records_})
        for (const Head& head : *heads) all.push_back(head.source->facts());
    return all;
}

}  // namespace zelhost
