// What the whole program has allocated and not freed. The program has the functions of the allocator itself, counts
// each call and hands it on to the next library that has them: the C library or an allocator that was preloaded. So
// figures are exact with any allocator, whatever it keeps for itself.
#pragma once

#include <cstdint>
#include <string>

namespace zelhost {

struct Memory {
    int64_t blocks = 0;
    int64_t bytes = 0;  // that the allocator has set aside for the blocks

    friend Memory operator-(const Memory& a, const Memory& b) { return {a.blocks - b.blocks, a.bytes - b.bytes}; }
    bool operator==(const Memory&) const = default;
};

// Any thread. Exact when no other thread allocates.
Memory living_memory();

// The file name of the library that allocates.
std::string allocator_name();

}  // namespace zelhost
