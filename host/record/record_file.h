// Records of sessions as files. record.proto says what is in them and how a file is built.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "record.pb.h"

namespace zelhost {

// Writes a record. Any thread may add; the order of the calls is the order of the steps.
// Owns the file. Steps are collected in a batch, and the caller's thread writes the batch when it
// is full or old. There is no thread of its own, so an idle session writes nothing.
class RecordWriter {
public:
    using Clock = std::chrono::steady_clock;

    // Makes the file, or empties it, and writes its head. Throws Failure.
    RecordWriter(std::string path, const record::Head& head);
    // Writes what is left.
    ~RecordWriter();
    RecordWriter(const RecordWriter&) = delete;
    RecordWriter& operator=(const RecordWriter&) = delete;

    // Adds a step that happens now; its time is set here. Steps are written in batches: at the latest with the first
    // step after a tenth of a second, or after two seconds when all of them are polls of idle workers. A disk that is
    // full ends the record and not the session: `error` tells it.
    void add(record::Step step);
    // Writes what waits.
    void flush();
    // Why nothing is written any more; empty while all is well.
    std::string error() const;

private:
    // Both are called with the lock held.
    void write_batch();
    void write_entry(const google::protobuf::Message& entry);

    // For messages to people.
    const std::string path_;
    mutable std::mutex mutex_;  // guards all below
    std::unique_ptr<FILE, int (*)(FILE*)> file_;
    record::Batch batch_;
    size_t batch_bytes_ = 0;      // about so many
    bool batch_is_quiet_ = true;  // it holds nothing but polls of idle workers
    // When the last step was added and when a batch was last written. The first has whole
    // microseconds only.
    Clock::time_point last_step_, last_write_;
    std::string error_;
};

// Reads a record from its start. One thread.
// Owns the file and reads it batch by batch, so that a long record needs little memory.
class RecordReader {
public:
    // Throws Failure when the file cannot be opened, is no record, or is one of another version.
    explicit RecordReader(const std::string& path);

    const record::Head& head() const { return head_; }
    // The next step; false at the end, and where the file is damaged.
    // `step` gets a step that is the caller's to keep.
    bool next(record::Step& step);
    // When the last step happened, in microseconds since the record began.
    int64_t at_us() const { return at_us_; }
    // True at the end of a record that does not end as it was written: its last entry is not complete, since its writer
    // was killed, or an entry is damaged, which is not the same for whoever looks for the reason.
    bool cut_short() const { return cut_short_; }
    bool damaged() const { return damaged_; }
    // How far it could be read, in bytes.
    uint64_t read_bytes() const { return offset_; }

private:
    // False at the end of the file and at an entry that cannot be read. The flags below say which.
    bool read_entry(google::protobuf::Message& entry);

    const std::string path_;
    std::unique_ptr<FILE, int (*)(FILE*)> file_;
    uint64_t file_size_ = 0;
    uint64_t offset_ = 0;  // of the next entry
    record::Head head_;
    // The steps of the last entry, of which those from `next_in_batch_` on are still to be given
    // out.
    record::Batch batch_;
    int next_in_batch_ = 0;
    int64_t at_us_ = 0;
    bool cut_short_ = false;
    bool damaged_ = false;
};

// Whether the file begins as a record does, of whatever version. False when it cannot be read.
bool is_record(const std::string& path);

}  // namespace zelhost
