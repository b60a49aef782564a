// Lines of a file, a pipe or a terminal, of any length.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/lib/stop_signal.h"

namespace zelhost {

// Owns the descriptor, but for standard input. Borrows the stop signal. One thread.
//
// A reader that follows waits for more at the end of a regular file and of a named pipe, until a signal comes:
// - a file that has become shorter than what was read of it is read again from its start;
// - when the path names another file, the old one is read to its end and the new one from its start;
// - a pipe without writers waits for the next one.
// A last line without an end counts at each of these places. Standard input that is a pipe or a terminal ends as ever.
class LineReader {
public:
    enum class Mode { to_the_end, follow };
    // "-" is standard input. Throws Failure when the file cannot be opened.
    LineReader(const std::string& path, Mode mode, const StopSignal& stop);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // The next line without its end, valid until the next call; false at the end of the input or when a signal came.
    bool next(std::string_view& line);

    uint64_t number() const { return number_; }  // of the last line, from 1
    // How much of a regular file has been read, in per cent; negative for anything else and for one that is followed.
    int percent() const;

private:
    // What a read has brought: more bytes, the end of a line without one in the text, or a signal.
    enum class Got { more, line_end, stopped };
    Got fill();
    // What the end of the input means for each kind of file.
    Got at_end();
    Got after_regular_file();
    Got after_named_pipe();
    // Takes another descriptor and closes the one before.
    void replace(int descriptor);

    const StopSignal& stop_;
    const std::string path_;
    const Mode mode_;
    int descriptor_;
    // Bytes that were read and not dropped yet. The line that was given out lies in it.
    std::string buffer_;
    size_t used_ = 0;  // bytes of the buffer that were given out
    bool ended_ = false;
    uint64_t number_ = 0;
    // In bytes: what was read, and the size that the file had at the opening; 0 for what has none.
    uint64_t read_ = 0;
    uint64_t size_ = 0;
};

}  // namespace zelhost
