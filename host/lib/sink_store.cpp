#include "host/lib/sink_store.h"

#include <sqlite3.h>

#include <algorithm>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

// The file's own lock keeps other processes out. Changes go to a log beside the file, which needs no waiting for the
// disk at each change. The check of the file's form finds another program's file before anything is written.
constexpr const char* kSetUp = R"(
    PRAGMA locking_mode = EXCLUSIVE;
    PRAGMA journal_mode = WAL;
    PRAGMA synchronous = NORMAL;
    PRAGMA journal_size_limit = 8388608;
    PRAGMA temp_store = MEMORY;
    CREATE TABLE IF NOT EXISTS message(number INTEGER PRIMARY KEY, time_ms INTEGER NOT NULL, kind INTEGER NOT NULL,
        source INTEGER NOT NULL, agent TEXT NOT NULL, id TEXT NOT NULL, payload BLOB NOT NULL);
    BEGIN IMMEDIATE; COMMIT;)";

// How many messages one step of shedding takes.
constexpr int kShedAtOnce = 16;

// A copy: the library's memory is valid only until the next step.
std::string bytes_of(sqlite3_stmt* statement, int column) {
    const auto* const data = static_cast<const char*>(sqlite3_column_blob(statement, column));
    return data == nullptr ? std::string()
                           : std::string(data, static_cast<size_t>(sqlite3_column_bytes(statement, column)));
}

// The caller keeps the bytes until the statement has run.
void bind_text(sqlite3_stmt* statement, int column, const std::string& text) {
    sqlite3_bind_text(statement, column, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

std::filesystem::path make_folder(const std::filesystem::path& folder) {
    std::error_code error;
    // What is in it is nobody else's business. A folder that was there before keeps its permissions.
    if (std::filesystem::create_directories(folder, error))
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
    if (error)
        throw Failure("cannot make the folder of the sink's buffer {}: {}; --sink-buffer names another",
                      folder.string(), error.message());
    return folder / "buffer.db";
}

}  // namespace

void SinkStore::Close::operator()(sqlite3* database) const { sqlite3_close(database); }
void SinkStore::Close::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

SinkStore::SinkStore(const std::filesystem::path& folder, uint64_t limit_bytes)
    : file_(make_folder(folder)), limit_bytes_(limit_bytes) {
    sqlite3* database = nullptr;
    const int opened = sqlite3_open_v2(file_.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    database_.reset(database);
    // What the failure says stands in the half-open database, so that is kept until then.
    if (opened != SQLITE_OK) fail("open");
    run(kSetUp, "set up");
    // Statements are prepared once and used for every message.
    insert_ = prepare("INSERT INTO message VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)");
    select_ = prepare("SELECT * FROM message WHERE number >= ?1 ORDER BY number LIMIT ?2");
    delete_ = prepare("DELETE FROM message WHERE number = ?1");
    delete_oldest_ = prepare(
        "DELETE FROM message WHERE number IN (SELECT number FROM message WHERE number >= ?1 ORDER BY number LIMIT ?2)");
    delete_before_ = prepare(
        "DELETE FROM message WHERE time_ms < ?3 AND number IN (SELECT number FROM message WHERE number >= ?1 "
        "ORDER BY number LIMIT ?2)");
    oldest_ = prepare("SELECT time_ms FROM message ORDER BY number LIMIT 1");
    pages_ = prepare("PRAGMA page_count");
    free_pages_ = prepare("PRAGMA freelist_count");
    // These two are asked once.
    page_bytes_ = static_cast<uint64_t>(number(prepare("PRAGMA page_size")));
    count_ = static_cast<uint64_t>(number(prepare("SELECT count(*) FROM message")));
    // An empty table has no highest number, and numbering begins with 1.
    next_number_ = number(prepare("SELECT max(number) FROM message")) + 1;
    bytes_ = used_bytes();
}

SinkStore::~SinkStore() = default;

void SinkStore::fail(const char* what) const {
    // The library's number of the failure tells the causes that a person can do something about.
    const int code = sqlite3_errcode(database_.get());
    if (code == SQLITE_BUSY)
        throw Failure("the sink's buffer {} is in use by another run; --sink-buffer names another folder",
                      file_.string());
    if (code == SQLITE_NOTADB || code == SQLITE_CORRUPT)
        throw Failure("the sink's buffer {} is damaged; move it away, and a new one is made", file_.string());
    throw Failure("cannot {} the sink's buffer {}: {}", what, file_.string(), sqlite3_errmsg(database_.get()));
}

void SinkStore::run(const char* sql, const char* what) {
    if (sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail(what);
}

SinkStore::Statement SinkStore::prepare(const char* sql) const {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database_.get(), sql, -1, &statement, nullptr) != SQLITE_OK) fail("read");
    return Statement(statement);
}

int64_t SinkStore::number(const Statement& statement) {
    // A statement that has no row answers 0.
    const int result = sqlite3_step(statement.get());
    const int64_t value = result == SQLITE_ROW ? sqlite3_column_int64(statement.get(), 0) : 0;
    if (result != SQLITE_ROW && result != SQLITE_DONE) fail("read");
    sqlite3_reset(statement.get());
    return value;
}

void SinkStore::step(const Statement& statement, const char* what) {
    const bool done = sqlite3_step(statement.get()) == SQLITE_DONE;
    if (!done) {
        // The reset would replace the reason.
        try {
            fail(what);
        } catch (const Failure&) {
            sqlite3_reset(statement.get());
            throw;
        }
    }
    sqlite3_reset(statement.get());
}

// A disk that is full ends a change by itself, now and then.
template <class Act>
void SinkStore::change(Act act) {
    // The count must be that of the file, so it goes back when the change does.
    const uint64_t count = count_;
    run("BEGIN IMMEDIATE", "write");
    try {
        act();
        run("COMMIT", "write");
    } catch (...) {
        count_ = count;
        if (sqlite3_get_autocommit(database_.get()) == 0)
            sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
    bytes_ = used_bytes();
}

uint64_t SinkStore::used_bytes() { return static_cast<uint64_t>(number(pages_) - number(free_pages_)) * page_bytes_; }

// In small steps, since only the pages tell how much room a message takes.
uint64_t SinkStore::keep_limit(int64_t from) {
    uint64_t shed = 0;
    // Pages that are free may be used again and do not count.
    while (used_bytes() > limit_bytes_) {
        sqlite3_bind_int64(delete_oldest_.get(), 1, from);
        sqlite3_bind_int64(delete_oldest_.get(), 2, kShedAtOnce);
        step(delete_oldest_, "write");
        const int gone = sqlite3_changes(database_.get());
        if (gone == 0) break;
        shed += static_cast<uint64_t>(gone);
    }
    count_ -= shed;
    return shed;
}

uint64_t SinkStore::append(std::span<const SharedMessage> messages, int64_t from) {
    uint64_t shed = 0;
    change([&] {
        // All messages of one call are one change: they are written together or not at all.
        for (const SharedMessage& message : messages) {
            sqlite3_stmt* const row = insert_.get();
            sqlite3_bind_int64(row, 1, message->number);
            sqlite3_bind_int64(row, 2, message->time_ms);
            sqlite3_bind_int64(row, 3, message->kind);
            sqlite3_bind_int64(row, 4, message->source);
            bind_text(row, 5, message->agent);
            bind_text(row, 6, message->id);
            sqlite3_bind_blob64(row, 7, message->payload.data(), message->payload.size(), SQLITE_STATIC);
            step(insert_, "write");
            ++count_;
        }
        shed = keep_limit(from);
    });
    return shed;
}

std::vector<SharedMessage> SinkStore::read(int64_t from, size_t most, size_t most_bytes) {
    std::vector<SharedMessage> messages;
    sqlite3_stmt* const row = select_.get();
    sqlite3_bind_int64(row, 1, from);
    sqlite3_bind_int64(row, 2, static_cast<int64_t>(most));
    int result;
    size_t bytes = 0;
    while ((result = sqlite3_step(row)) == SQLITE_ROW) {
        auto message = std::make_shared<SinkMessage>();
        message->number = sqlite3_column_int64(row, 0);
        message->time_ms = sqlite3_column_int64(row, 1);
        message->kind = static_cast<uint32_t>(sqlite3_column_int64(row, 2));
        message->source = static_cast<uint32_t>(sqlite3_column_int64(row, 3));
        message->agent = bytes_of(row, 4);
        message->id = bytes_of(row, 5);
        message->payload = bytes_of(row, 6);
        bytes += message->payload.size();
        messages.push_back(std::move(message));
        // The last message is given out even when it goes beyond the limit. Otherwise a large one
        // would block the way.
        if (bytes >= most_bytes) break;
    }
    const bool failed = result != SQLITE_ROW && result != SQLITE_DONE;
    // The reason is read before the reset, which would clear it.
    if (failed) {
        sqlite3_reset(row);
        fail("read");
    }
    sqlite3_reset(row);
    return messages;
}

void SinkStore::remove(std::span<const int64_t> numbers) {
    change([&] {
        for (const int64_t number : numbers) {
            sqlite3_bind_int64(delete_.get(), 1, number);
            step(delete_, "write");
            // A number that is not in the file changes nothing.
            count_ -= static_cast<uint64_t>(sqlite3_changes(database_.get()));
        }
    });
}

// Numbers and times have one order, so that the oldest few tell whether there is more to do.
uint64_t SinkStore::shed_before(int64_t time_ms, int64_t from) {
    uint64_t shed = 0;
    change([&] {
        int gone;
        do {
            sqlite3_bind_int64(delete_before_.get(), 1, from);
            sqlite3_bind_int64(delete_before_.get(), 2, kShedAtOnce);
            sqlite3_bind_int64(delete_before_.get(), 3, time_ms);
            step(delete_before_, "write");
            // Fewer than asked for means that the next one is young enough.
            gone = sqlite3_changes(database_.get());
            shed += static_cast<uint64_t>(gone);
        } while (gone == kShedAtOnce);
        count_ -= shed;
    });
    return shed;
}

int64_t SinkStore::oldest_ms() { return number(oldest_); }

}  // namespace zelhost
