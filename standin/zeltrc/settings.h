// Settings of the stand-in: section "standin" of zeltrc.ini. Each start of the module reads them.
#pragma once

#include <cstdint>

struct Settings {
    uint64_t not_ready_times = 0;  // answers "not ready" that each alert gets first
    uint64_t cost_ms = 0;          // how long each call takes
    uint64_t fail_every = 0;       // each trace whose number is a multiple of this fails; 0 for none
    uint64_t drop_every = 0;       // likewise dropped
    uint64_t partial_result = 0;   // not 0: a trace that is not complete has a result all the same
    uint64_t init_fails = 0;       // not 0: the module refuses to start
};

// A key that is missing, is no number or exceeds its limit keeps its default; the last two are a WARN line.
Settings read_settings();
