// The host that a chain belongs to.
#pragma once

#include "retrace.pb.h"

// Names and sizes of this host, looked up anew: an object that is kept would be destroyed before a worker that still
// traces, when a program exits without a stop. Figures that change between calls (what is used of processor,
// memory and disk) stay out: the same report must give the same chain. Sizes are in bytes, addresses those of IPv4.
vorn_retrace::device_info describe_host();
