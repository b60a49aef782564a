#include "host/load/process_memory.h"

#include <malloc.h>
#include <unistd.h>

#include <fstream>

namespace zelhost {

uint64_t resident_kib(Trim trim) {
    // The allocator keeps freed pages for later use. A comparison of two moments would count them.
    if (trim == Trim::yes) malloc_trim(0);
    uint64_t pages = 0;
    uint64_t resident = 0;
    // The file has numbers of pages. The second is what is in memory now.
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

}  // namespace zelhost
