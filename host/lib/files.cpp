#include "host/lib/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

// Bytes asked for at once.
// As much as a pipe holds on Linux.
constexpr size_t kChunk = 1 << 16;

// Standard output belongs to the process.
int keep_open(FILE* file) { return fflush(file); }

// Owns a descriptor, but for standard input.
// Closes the file in any case, also when reading throws.
struct Descriptor {
    explicit Descriptor(const std::string& path)
        : number(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (number < 0) throw Failure("cannot open {}: {}", path, strerror(errno));
    }
    ~Descriptor() {
        if (number != STDIN_FILENO) close(number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number;
};

}  // namespace

std::string read_file(const std::string& path, size_t most) {
    const Descriptor file(path);
    const std::string name = path == "-" ? "standard input" : path;
    std::string bytes;
    for (;;) {
        // The text grows by a piece first and is cut to what came. A file need not tell its size.
        const size_t size = bytes.size();
        bytes.resize(size + kChunk);
        const ssize_t got = read(file.number, bytes.data() + size, kChunk);
        bytes.resize(size + (got > 0 ? static_cast<size_t>(got) : 0));
        if (got == 0) return bytes;
        if (got < 0 && errno != EINTR) throw Failure("cannot read {}: {}", name, strerror(errno));
        // Looked at while reading, since an endless device would fill the memory.
        if (bytes.size() > most) throw Failure("{} is too large: more than {} bytes", name, most);
    }
}

// "e" closes the file in a child process.
OutputFile::OutputFile(const std::string& path)
    : path_(path == "-" ? "standard output" : path),
      file_(path == "-" ? stdout : fopen(path.c_str(), "we"), path == "-" ? keep_open : fclose) {
    if (!file_) throw Failure("cannot open the output {}: {}", path, strerror(errno));
}

void OutputFile::write(std::string_view text) {
    check(fwrite(text.data(), 1, text.size(), file_.get()) == text.size());
}

void OutputFile::flush() { check(fflush(file_.get()) == 0); }

// The whole text goes through the same checks as a file.
void print(std::string_view text) {
    OutputFile output("-");
    output.write(text);
    output.flush();
}

void OutputFile::check(bool written) {
    if (written) return;
    // A reader that has gone is no failure.
    if (errno == EPIPE) throw ClosedPipe();
    throw Failure("cannot write {}: {}", path_, strerror(errno));
}

}  // namespace zelhost
