// The host that a chain belongs to.
#pragma once

#include "retrace.pb.h"

// Names and sizes of this host. They are looked up anew each time: when a program exits without a stop, a kept object
// would be destroyed before a worker that still traces. Figures that change between calls, such as the free memory,
// stay out, because the same report must give the same chain. Sizes are in bytes; addresses are those of IPv4.
vorn_retrace::device_info describe_host();
