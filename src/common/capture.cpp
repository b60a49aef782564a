#include "common/capture.h"

#include <atomic>
#include <cstdio>
#include <iterator>
#include <memory>

#include "common/log.h"
#include "platform/event_ids.h"

namespace {

constexpr const char* kFolder = "/root/kq-agent/";
constexpr const char* kFileNames[] = {"ioa_alarm.data", "ioa_trc.data",   "ioc_alarm.data",
                                      "ioc_trc.data",   "kov_alarm.data", "kov_trc.data"};
constexpr size_t kPathSize = 64;     // the longest path, a side file's, has 37 characters
constexpr int32_t kLastNumber = 20;  // the last number that counts on: numbers run from 1 to 21

// One number for all kinds and both workers. Two captures at the same moment may get the same number; one of the two
// copies is then overwritten or mixed, which diagnosis can live with.
std::atomic<int32_t> g_sequence{1};

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// An empty buffer still leaves an empty file, so that the numbers have no gap.
void write_file(const char* path, const char* mode, const void* data, size_t size) {
    const File file(fopen(path, mode));
    if (file != nullptr && size > 0) fwrite(data, 1, size, file.get());
}

}  // namespace

void CaptureData(const char* pBuffer, uint64_t uSize, CaptureKind eKind) {
    // The flag file is looked up at each call. A look-up costs little beside a report, and no restart is needed.
    if (!is_capture_on()) {
        LOG_DEBUG("reshdlproto_flag not exist");
        return;
    }
    const int32_t number = g_sequence.load(std::memory_order_relaxed);
    const auto kind = static_cast<size_t>(eKind);
    char path[kPathSize];
    zel_str_snprintf(path, sizeof path, "%s%s.%d", kFolder, kind < std::size(kFileNames) ? kFileNames[kind] : "",
                     number);
    write_file(path, "wb", pBuffer, uSize);
    char size_path[kPathSize];
    zel_str_snprintf(size_path, sizeof size_path, "%s.size", path);
    char line[24];
    const int32_t length = zel_str_snprintf(line, sizeof line, "%llu\n", static_cast<unsigned long long>(uSize));
    // Sizes are added to the side file: it keeps the sizes of earlier copies under the same number.
    write_file(size_path, "ab", line, static_cast<size_t>(length));
    g_sequence.store(number > kLastNumber ? 1 : number + 1, std::memory_order_relaxed);
}

void CaptureTraceData(const char* pBuffer, uint64_t uSize, uint32_t uEventId) {
    switch (uEventId) {
        case event_id::ioa_alert: return CaptureData(pBuffer, uSize, CaptureKind::ioa_trc);
        case event_id::kov: return CaptureData(pBuffer, uSize, CaptureKind::kov_trc);
        case event_id::ioc: return CaptureData(pBuffer, uSize, CaptureKind::ioc_trc);
        default: return;
    }
}
