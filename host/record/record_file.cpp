#include "host/record/record_file.h"

#include <google/protobuf/io/gzip_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;
namespace io = google::protobuf::io;

// The first line of a file. The version follows it.
constexpr std::string_view kMark = "zelreshdl record ";
constexpr int kVersion = 1;

// A batch is written when it is as large or as old as that. A kill costs no more than the last one. Workers that poll
// empty queues take most of the steps of a quiet session; longer batches of them are packed to half the size.
constexpr size_t kBatchBytes = size_t{256} * 1024;
constexpr auto kBatchAge = 100ms;
constexpr auto kQuietBatchAge = 2s;
// What one step takes beside its data.
constexpr size_t kStepBytes = 12;

// The questions up to TICKS are those that an idle worker asks over and over.
bool is_poll(const record::Step& step) { return step.has_answer() && step.answer().question() <= record::TICKS; }

// Data of an answer is nearly all that it holds. The exact size would take a walk over each
// message.
size_t about_size(const record::Step& step) {
    return kStepBytes + (step.has_answer() ? step.answer().data().size() : step.ByteSizeLong());
}

// Empty when the entry is too large for the library.
std::string gzipped(const google::protobuf::Message& entry) {
    std::string bytes;
    io::StringOutputStream out(&bytes);
    io::GzipOutputStream zip(&out);
    if (!entry.SerializeToZeroCopyStream(&zip) || !zip.Close()) return {};
    return bytes;
}

// The stream reads on to the checksum at the end, which the parser alone would not.
bool parse_gzipped(const std::string& bytes, google::protobuf::Message& entry) {
    io::ArrayInputStream in(bytes.data(), static_cast<int>(bytes.size()));
    io::GzipInputStream zip(&in, io::GzipInputStream::GZIP);
    if (!entry.ParseFromZeroCopyStream(&zip)) return false;
    // Something behind the end of the packed data is damage as well.
    const void* more = nullptr;
    int size = 0;
    return !zip.Next(&more, &size) && zip.ZlibErrorMessage() == nullptr;
}

}  // namespace

RecordWriter::RecordWriter(std::string path, const record::Head& head)
    : path_(std::move(path)),
      file_(fopen(path_.c_str(), "wbe"), fclose),
      last_step_(Clock::now()),
      last_write_(last_step_) {
    if (file_ == nullptr) throw Failure("cannot write the record {}: {}", path_, strerror(errno));
    // Each entry goes out in one call, which a kill does not part.
    // A buffer of the C library would part an entry where the buffer is full.
    setvbuf(file_.get(), nullptr, _IONBF, 0);
    const std::string mark = fmt::format("{}{}\n", kMark, kVersion);
    if (fwrite(mark.data(), mark.size(), 1, file_.get()) != 1)
        throw Failure("cannot write the record {}: {}", path_, strerror(errno));
    // A file system may be full from the start. The user learns it before the session begins.
    write_entry(head);
    if (!error_.empty()) throw Failure("{}", error_);
}

RecordWriter::~RecordWriter() { flush(); }

void RecordWriter::add(record::Step step) {
    const std::lock_guard lock(mutex_);
    if (!error_.empty()) return;
    const auto now = Clock::now();
    // The time since the last step is kept, and not the time of day. Small numbers take less room.
    const auto after = std::chrono::duration_cast<std::chrono::microseconds>(now - last_step_);
    last_step_ += after;  // what is less than a microsecond stays for the next one
    step.set_after_us(static_cast<uint64_t>(after.count()));
    batch_bytes_ += about_size(step);
    batch_is_quiet_ = batch_is_quiet_ && is_poll(step);
    *batch_.add_steps() = std::move(step);
    // The first step after a long rest writes the batch. No timer is needed for that.
    if (batch_bytes_ >= kBatchBytes || now - last_write_ >= (batch_is_quiet_ ? kQuietBatchAge : kBatchAge))
        write_batch();
}

void RecordWriter::flush() {
    const std::lock_guard lock(mutex_);
    if (error_.empty()) write_batch();
}

std::string RecordWriter::error() const {
    const std::lock_guard lock(mutex_);
    return error_;
}

void RecordWriter::write_batch() {
    last_write_ = Clock::now();
    batch_bytes_ = 0;
    batch_is_quiet_ = true;
    if (batch_.steps_size() > 0) write_entry(batch_);
    // A batch is dropped even when it could not be written: memory would grow without end
    // otherwise.
    batch_.clear_steps();
}

void RecordWriter::write_entry(const google::protobuf::Message& entry) {
    const std::string packed = gzipped(entry);
    const auto length = static_cast<uint32_t>(packed.size());
    std::string bytes;
    // The length comes first, the lowest byte first.
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(length >> shift & 0xff);
    bytes += packed;
    // A batch is limited, but a single step may be as large as its payload.
    if (packed.empty() || fwrite(bytes.data(), bytes.size(), 1, file_.get()) != 1)
        error_ = fmt::format("cannot write the record {}: {}", path_,
                             packed.empty() ? "a step of more than 2 GiB" : strerror(errno));
}

// --- reading ---

RecordReader::RecordReader(const std::string& path) : path_(path), file_(fopen(path.c_str(), "rbe"), fclose) {
    if (file_ == nullptr) throw Failure("cannot read the record {}: {}", path_, strerror(errno));
    struct stat status{};
    // The size stays 0 when the system does not tell it. Nothing can be read from the file then.
    if (fstat(fileno(file_.get()), &status) == 0) file_size_ = static_cast<uint64_t>(status.st_size);
    char line[64] = {};
    const bool read = fgets(line, sizeof line, file_.get()) != nullptr;
    const std::string_view mark(line);
    if (!read || !mark.starts_with(kMark) || !mark.ends_with('\n'))
        throw Failure("{} is no record; zelhost run --record FILE makes one", path_);
    // The line ends with a line feed, at which the number ends.
    int version = -1;
    std::from_chars(mark.data() + kMark.size(), mark.data() + mark.size(), version);
    if (version != kVersion)
        throw Failure("{} is a record of version {}, and this zelhost reads version {}: {}", path_, version, kVersion,
                      version < kVersion ? "record it again" : "take a newer zelhost");
    offset_ = mark.size();
    if (!read_entry(head_)) throw Failure("{} is a record without its head: its writer was killed at once", path_);
}

bool RecordReader::next(record::Step& step) {
    // A batch may be empty, so more than one may have to be read.
    while (next_in_batch_ == batch_.steps_size()) {
        next_in_batch_ = 0;
        batch_.clear_steps();
        if (cut_short_ || !read_entry(batch_)) {
            batch_.clear_steps();
            return false;
        }
    }
    step = std::move(*batch_.mutable_steps(next_in_batch_++));
    at_us_ += static_cast<int64_t>(step.after_us());
    return true;
}

// A length that leads beyond the end of the file is that of an entry which was cut, or damage at its last place: there
// is no more to read in either case.
bool RecordReader::read_entry(google::protobuf::Message& entry) {
    unsigned char size[4] = {};
    const size_t got = fread(size, 1, sizeof size, file_.get());
    uint32_t length = 0;
    for (int i = 3; i >= 0; --i) length = length << 8 | size[i];
    const uint64_t end = offset_ + sizeof size + length;
    std::string bytes;
    // The size of the file is compared before any memory is asked for. A damaged length could ask
    // for 4 GiB.
    if (got == sizeof size && end <= file_size_) {
        bytes.resize(length);
        if (fread(bytes.data(), 1, length, file_.get()) == length) {
            damaged_ = cut_short_ = !parse_gzipped(bytes, entry);
            if (!damaged_) offset_ = end;
            return !damaged_;
        }
    }
    damaged_ = ferror(file_.get()) != 0;
    cut_short_ = got > 0 || damaged_;
    return false;
}

bool is_record(const std::string& path) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "rbe"), fclose);
    char start[kMark.size()];
    return file != nullptr && fread(start, sizeof start, 1, file.get()) == 1 &&
           std::string_view(start, sizeof start) == kMark;
}

}  // namespace zelhost
