// What logs and records of the plug-in hold, as one sequence in order of time.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/explain/story.h"
#include "host/explain/story_texts.h"
#include "host/lib/stop_signal.h"

namespace zelhost {

// One thing that happened.
// Which members are set depends on the kind. An entry that is given out is the caller's to keep.
struct Entry {
    enum class Kind : uint8_t {
        line,       // of the plug-in's log
        foreign,    // a line of a log file that is none of the plug-in's
        published,  // an event was given to the bus
        delivered,  // the bus is about to give the next event to the plug-in
        sent,       // the plug-in gave an event out
    };
    Kind kind = Kind::line;
    int64_t at_us = kNoTime;  // microseconds since 1970
    Worker worker = Worker::unknown;
    int64_t process = 0;
    int32_t level = 0;
    std::string text;    // of a line
    std::string file;    // the source file that logged it; empty in a record
    std::string place;   // "FILE:LINE", for a line of a log file
    EVENT_ID event = 0;  // published, sent
    std::string guid;    // sent
    std::string data;    // published: the payload
    uint64_t size = 0;   // sent: of the message
};

// What is known of a file once it has been read.
// It is exact once `next` has answered false. Until then it says how far the source was read.
struct FileFacts {
    std::string path;
    bool is_record = false;
    bool cut_short = false;     // a record that does not end as it was written
    bool damaged = false;       // a record that could not be read to its end
    uint64_t lines = 0;         // of the plug-in
    int32_t highest_level = 0;  // of these
};

// Gives out entries, each source in its own order. One thread.
// One source is one file or standard input. The stop signal that it is given ends it early.
class EntrySource {
public:
    virtual ~EntrySource() = default;
    // False at the end. Throws Failure when the file cannot be read on.
    // Of what has been read so far.
    virtual bool next(Entry& entry) = 0;
    virtual FileFacts facts() const = 0;
};

// Opens a log or a record; which of the two, its first line tells. "-" is a log on standard input. Throws Failure.
std::unique_ptr<EntrySource> open_source(const std::string& path, const StopSignal& stop);

// Brings several sources into one order. A source keeps its own order even where its times step back by a moment: a
// logger takes the time before it writes. Where a record and a log tell of the same line, the line comes once, with the
// thread from the record, and the record's other entries stand around it as they did.
// Owns the sources. The stop signal is borrowed. One thread.
class MergedEntries {
public:
    // Opens all files. Throws Failure for the first that cannot be opened.
    MergedEntries(const std::vector<std::string>& paths, const StopSignal& stop);

    // False at the end of all sources. Throws Failure when a file cannot be read on.
    bool next(Entry& entry);
    // One for each path: logs before records.
    std::vector<FileFacts> facts() const;

private:
    // A source with what was read of it ahead of its turn.
    struct Head {
        std::unique_ptr<EntrySource> source;
        std::deque<Entry> ahead;
        std::unordered_map<std::string, uint32_t> texts = {};  // lines among them
        int64_t read_us = kNoTime;                             // time of the last entry that was read
        int64_t process = 0;                                   // of a record: that of its lines
        bool ended = false;

        // Reading ahead and giving out, as the .cpp file says at each.
        bool read();
        bool reads_to(int64_t at_us);
        Entry take();
        Entry take_of_process();
    };
    // Null when no source has an entry left.
    static Head* earliest(std::vector<Head>& heads);
    static bool tells_of(Head& record, const Entry& line);

    std::vector<Head> logs_, records_;
};

}  // namespace zelhost
