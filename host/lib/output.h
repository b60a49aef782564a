// Where the lines of a run go.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace zelhost {

// Any thread may write; lines do not mix. An output ends when its limit is reached, when nobody reads it any more, or
// when it cannot be written. After that nothing is written.
// Owns the file, but for standard output.
class Output {
public:
    enum class State { open, limit_reached, closed, failed };

    // "-" is standard output. After `limit` shown lines the output ends; 0 means never. `on_end` is called once, on the
    // thread that finds the end, and must not call back. Throws Failure when the file cannot be opened.
    Output(const std::string& path, uint64_t limit, std::function<void()> on_end);

    // Writes a line, which counts.
    void show(const std::string& line);
    // Writes a line that is not counted.
    void remark(const std::string& line);
    // Looks whether somebody still reads, which a run that writes nothing would not learn otherwise.
    void look();

    // How it stands. Once it is no longer open it stays so.
    State state() const;
    uint64_t shown() const;
    // Why the output failed.
    std::string error() const;

private:
    // Both under the mutex.
    void write(const std::string& line);
    void end(State state);

    const std::string path_;
    // Lines that end the output; 0 for none.
    const uint64_t limit_;
    const std::function<void()> on_end_;
    std::unique_ptr<FILE, int (*)(FILE*)> file_;
    const bool terminal_;
    // Held while a line is written, so that lines do not mix.
    mutable std::mutex mutex_;
    // Under the mutex.
    State state_ = State::open;
    uint64_t shown_ = 0;
    std::string error_;
};

}  // namespace zelhost
