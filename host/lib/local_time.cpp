#include "host/lib/local_time.h"

#include <fmt/format.h>

#include <ctime>

namespace zelhost {

std::string local_time(bool with_date) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[32];
    const size_t size = strftime(text, sizeof text, with_date ? "%Y-%m-%d %H:%M:%S" : "%H:%M:%S", &local);
    return fmt::format("{}.{:03}", std::string_view(text, size), now.tv_nsec / 1'000'000);
}

}  // namespace zelhost
