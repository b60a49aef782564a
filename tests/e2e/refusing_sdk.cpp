// A reporting library that does not start.
#include <cstdint>

extern "C" __attribute__((visibility("default"))) int32_t zel_bp_init() { return -9; }
