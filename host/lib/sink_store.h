// The messages that a server has not taken yet, in a file. What an earlier run has left is still there.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/lib/sink_message.h"

struct sqlite3;
struct sqlite3_stmt;

namespace zelhost {

// Bounded: above its limit it sheds its oldest messages. One thread at a time. A change is done whole or not at all,
// also when the process ends in the middle of it; a power failure may take the last moments back. Every function but
// those that only look throws Failure when the file cannot be read or written.
class SinkStore {
public:
    // Makes folder and file if need be. The file is this object's alone: another process that opens it fails.
    SinkStore(const std::filesystem::path& folder, uint64_t limit_bytes);
    ~SinkStore();
    SinkStore(const SinkStore&) = delete;
    SinkStore& operator=(const SinkStore&) = delete;

    // Adds messages; then sheds the oldest of those from the number `from` on until the limit is kept. The answer is
    // how many were shed.
    uint64_t append(std::span<const SharedMessage> messages, int64_t from);
    // The oldest messages from a number on, at least one if there is one.
    // At most `most` messages; no further one is read once `most_bytes` of payload are there.
    std::vector<SharedMessage> read(int64_t from, size_t most, size_t most_bytes);
    // Removes the messages with these numbers as one change.
    void remove(std::span<const int64_t> numbers);
    // Removes what is older than that moment, from a number on; the answer is how many were.
    uint64_t shed_before(int64_t time_ms, int64_t from);

    // Messages in the file.
    uint64_t count() const { return count_; }
    // The room that they take, in bytes of whole pages.
    uint64_t bytes() const { return bytes_; }
    // Of the oldest message, 0 when there is none.
    int64_t oldest_ms();
    // The first number behind those that were in the file when it was opened.
    int64_t next_number() const { return next_number_; }
    const std::filesystem::path& file() const { return file_; }

private:
    // Ends what the library has made.
    struct Close {
        void operator()(sqlite3* database) const;
        void operator()(sqlite3_stmt* statement) const;
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Close>;

    [[noreturn]] void fail(const char* what) const;
    void run(const char* sql, const char* what);
    Statement prepare(const char* sql) const;
    // The first column of the first row, 0 without one. The statement can be used again.
    int64_t number(const Statement& statement);
    // Runs a statement that has no rows and makes it ready again.
    void step(const Statement& statement, const char* what);
    // Runs `act` as one change. The count is that of before when it fails.
    template <class Act>
    void change(Act act);
    // The room in use, by the pages of the file.
    uint64_t used_bytes();
    // Sheds the oldest messages from `from` on, until the limit is kept.
    uint64_t keep_limit(int64_t from);

    const std::filesystem::path file_;
    const uint64_t limit_bytes_;
    std::unique_ptr<sqlite3, Close> database_;
    Statement insert_, select_, delete_, delete_oldest_, delete_before_, oldest_, pages_, free_pages_;
    uint64_t page_bytes_ = 0;
    uint64_t count_ = 0, bytes_ = 0;
    int64_t next_number_ = 1;
};

}  // namespace zelhost
