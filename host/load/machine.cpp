#include "host/load/machine.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace zelhost {

// The system gives up to three averages; the first is over a minute.
double load_average() {
    double averages[1] = {};
    return getloadavg(averages, 1) == 1 ? averages[0] : 0;
}

// The first line has ticks by what they were spent on. The fourth and the fifth are idle, and what stands behind the
// eighth is part of the first two.
double machine_busy_seconds() {
    std::ifstream file("/proc/stat");
    std::string name;
    file >> name;
    double busy = 0;
    double ticks = 0;
    for (int column = 1; column <= 8 && file >> ticks; ++column)
        if (column != 4 && column != 5) busy += ticks;
    // The kernel counts in ticks, and says how many make a second.
    return busy / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The first number of the file is the time. A thread may end while its files are read; it counts as not there.
int64_t thread_time_ns(std::string_view name) {
    std::error_code error;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task", error)) {
        std::string own;
        // The kernel cuts names of threads to 15 characters. The names of the plug-in's workers are
        // as long as that at most.
        std::getline(std::ifstream(thread.path() / "comm"), own);
        int64_t time = 0;
        if (own == name && std::ifstream(thread.path() / "schedstat") >> time) return time;
    }
    return 0;
}

}  // namespace zelhost
