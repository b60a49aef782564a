// Lines of a file, a pipe or a terminal, of any length.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/lib/stop_signal.h"

namespace zelhost {

// Owns the descriptor, but for standard input. Borrows the stop signal. One thread.
class LineReader {
public:
    // "-" is standard input. Throws Failure when the file cannot be opened.
    LineReader(const std::string& path, const StopSignal& stop);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // The next line without its end, valid until the next call; false at the end of the input or when a signal came.
    bool next(std::string_view& line);

    uint64_t number() const { return number_; }  // of the last line, from 1
    // How much of a regular file has been read, in per cent; negative for anything else.
    int percent() const;

private:
    bool fill();

    const StopSignal& stop_;
    std::string path_;
    int descriptor_;
    std::string buffer_;
    size_t used_ = 0;  // bytes of the buffer that were given out
    bool ended_ = false;
    uint64_t number_ = 0;
    uint64_t read_ = 0;
    uint64_t size_ = 0;
};

}  // namespace zelhost
