// Whole files that a command reads and writes. "-" is standard input or standard output.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace zelhost {

// The bytes of a file. Throws Failure when it cannot be opened or read, as a folder cannot, and when it has more than
// `most` bytes, as an endless device has.
std::string read_file(const std::string& path, size_t most = SIZE_MAX);

// Thrown when nobody reads the output any more. The command ends then, without a message: the reader has what it
// wanted.
struct ClosedPipe {};

// A file that is written from its start, or standard output. One thread.
// Owns the file, but for standard output, which is only flushed.
class OutputFile {
public:
    // Throws Failure when the file cannot be opened.
    explicit OutputFile(const std::string& path);

    // Both throw Failure with the reason, or ClosedPipe.
    void write(std::string_view text);
    void flush();

private:
    void check(bool written);

    // For messages to people.
    std::string path_;
    std::unique_ptr<FILE, int (*)(FILE*)> file_;
};

// Writes a whole result to standard output. Throws as OutputFile does.
void print(std::string_view text);

}  // namespace zelhost
