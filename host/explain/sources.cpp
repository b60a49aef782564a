// Logs and records as sources of entries.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/explain/entries.h"
#include "host/explain/log_line.h"
#include "host/lib/failure.h"
#include "host/lib/line_reader.h"
#include "host/record/record_file.h"

namespace zelhost {
namespace {

// So much of a line that is none of the plug-in's is kept.
// In bytes. A foreign line is only shown as an example, so its beginning is enough.
constexpr size_t kMostForeign = 200;
// A step back in time that is smaller than this is taken for a logger that was late. In
// microseconds.
constexpr int64_t kMomentUs = 1'000'000;

// Lines of other programs, of other processes and of no program at all may stand in between.
class LogSource : public EntrySource {
public:
    LogSource(const std::string& path, const StopSignal& stop)
        : name_(path == "-" ? "standard input" : path), reader_(path, LineReader::Mode::to_the_end, stop) {}

    // The entry's text is a copy, because the view of the line ends with the next one.
    bool next(Entry& entry) override {
        std::string_view line;
        while (reader_.next(line)) {
            // A log that was copied from another system may have line ends of two bytes.
            while (line.ends_with('\r')) line.remove_suffix(1);
            const auto parsed = parse_log_line(line);
            const bool continues = std::exchange(continues_, parsed && goes_on_behind(parsed->text));
            // One format of the plug-in ends with an empty line.
            if (line.empty() || (!parsed && continues)) continue;
            entry = Entry{};
            entry.place = fmt::format("{}:{}", name_, reader_.number());
            if (parsed)
                fill(entry, *parsed);
            else
                fill_foreign(entry, line);
            // What has no time of its own, and what a logger wrote a moment late, stands behind the line before. A
            // clock that was set back is believed.
            if (entry.at_us == kNoTime || (entry.at_us < last_us_ && last_us_ - entry.at_us < kMomentUs))
                entry.at_us = last_us_;
            last_us_ = entry.at_us;
            return true;
        }
        return false;
    }

    // A log file does not tell whether it was cut short.
    FileFacts facts() const override { return {.path = name_, .lines = lines_, .highest_level = highest_level_}; }

private:
    // The payload of a finding stands on a line of its own.
    static bool goes_on_behind(std::string_view text) {
        return text.starts_with("event_id:") && text.ends_with("data:");
    }

    void fill(Entry& entry, const LogFileLine& line) {
        ++lines_;
        highest_level_ = std::max(highest_level_, line.level);
        entry.at_us = line.at_us.value_or(kNoTime);
        entry.process = line.process;
        entry.level = line.level;
        entry.text = line.text;
        entry.file = line.file;
    }

    static void fill_foreign(Entry& entry, std::string_view line) {
        entry.kind = Entry::Kind::foreign;
        entry.text = line.substr(0, kMostForeign);
    }

    const std::string name_;
    LineReader reader_;
    bool continues_ = false;
    int64_t last_us_ = kNoTime;
    uint64_t lines_ = 0;
    int32_t highest_level_ = 0;
};

// A thread that has no role of its own is one that calls the exports, like the host's.
Worker worker_of(record::Role role) {
    switch (role) {
        case record::HOST: return Worker::host;
        case record::BUS: return Worker::bus;
        case record::ALARM: return Worker::alarm;
        case record::TRACE: return Worker::trace;
        default: return Worker::host;
    }
}

class RecordSource : public EntrySource {
public:
    explicit RecordSource(const std::string& path) : path_(path), reader_(path) {}

    bool next(Entry& entry) override {
        record::Step step;
        while (reader_.next(step)) {
            entry = Entry{};
            // A record has the time of its beginning and the time between steps.
            entry.at_us = reader_.head().began_us() + reader_.at_us();
            entry.worker = worker_of(step.role());
            if (fill(entry, step)) return true;
        }
        return false;
    }

    FileFacts facts() const override {
        return {.path = path_,
                .is_record = true,
                .cut_short = reader_.cut_short(),
                .damaged = reader_.damaged(),
                .lines = lines_,
                .highest_level = highest_level_};
    }

private:
    // False for a step that tells nothing of an alert.
    bool fill(Entry& entry, record::Step& step) {
        if (step.has_line()) {
            fill_line(entry, step.line());
            ++lines_;
            highest_level_ = std::max(highest_level_, entry.level);
            return true;
        }
        if (step.has_delivery()) {
            entry.kind = Entry::Kind::delivered;
            // What the host publishes may hold the document of an alert, which no line of the log
            // has.
            return true;
        }
        if (step.has_input() && step.input().has_publish()) {
            record::Publish& publish = *step.mutable_input()->mutable_publish();
            entry.kind = Entry::Kind::published;
            entry.event = publish.event_id();
            entry.data = std::move(*publish.mutable_data());
            return true;
        }
        // The payload of a DNS hit is a record in memory and no text. Its event id is enough here.
        if (step.has_input() && step.input().has_dns()) {
            entry.kind = Entry::Kind::published;
            entry.event = event_id::ioc;
            return true;
        }
        if (step.has_output() && step.output().has_event()) {
            const record::Event& event = step.output().event();
            entry.kind = Entry::Kind::sent;
            entry.event = event.event_id();
            entry.guid = event.guid();
            entry.size = event.message().size();
            return true;
        }
        return false;
    }

    // What stands behind a line end is a line of its own in a log file, and adds nothing here.
    static void fill_line(Entry& entry, const record::Line& line) {
        const std::string_view whole = std::string_view(line.text()).substr(0, line.text().find_first_of("\r\n"));
        // A record keeps the level as a number beside the line.
        entry.level = static_cast<int32_t>(line.level());
        entry.text = whole;
        const auto parsed = parse_log_line(whole);
        if (!parsed) return;
        entry.process = parsed->process;
        entry.file = parsed->file;
        entry.text = parsed->text;
    }

    const std::string path_;
    RecordReader reader_;
    uint64_t lines_ = 0;
    int32_t highest_level_ = 0;
};

}  // namespace

// Only a file can be looked at twice. Standard input would lose its beginning.
std::unique_ptr<EntrySource> open_source(const std::string& path, const StopSignal& stop) {
    if (path != "-" && is_record(path)) return std::make_unique<RecordSource>(path);
    return std::make_unique<LogSource>(path, stop);
}

}  // namespace zelhost
