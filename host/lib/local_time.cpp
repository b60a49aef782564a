#include "host/lib/local_time.h"

#include <fmt/format.h>

#include <ctime>

namespace zelhost {

std::string local_time(bool with_date) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return local_time(now.tv_sec * 1'000'000 + now.tv_nsec / 1000, with_date);
}

std::string local_time(int64_t at_us, bool with_date) {
    const time_t second = at_us / 1'000'000;
    tm local{};
    // The zone is that of the environment. The call is safe on several threads.
    localtime_r(&second, &local);
    char text[64];
    const size_t size = strftime(text, sizeof text, with_date ? "%Y-%m-%d %H:%M:%S" : "%H:%M:%S", &local);
    return fmt::format("{}.{:03}", std::string_view(text, size), at_us / 1000 % 1000);
}

}  // namespace zelhost
