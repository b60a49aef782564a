// Any bytes as a settings file: what a reader gives is within the limits or the default.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "common/common.h"
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int file = memfd_create("settings", 0);
    FUZZ_CHECK(file >= 0 && write(file, data, size) == static_cast<ssize_t>(size));
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    const unsigned long queue = CltCommon::IniGetUintExA("config", "queue_max", 100, 50, 500, path.c_str());
    FUZZ_CHECK(queue >= 50 && queue <= 500);
    const unsigned long times = CltCommon::IniGetDoubleExA("config", "trc_times", 8, 0, 16, path.c_str());
    FUZZ_CHECK(times <= 16);
    close(file);
    return 0;
}
