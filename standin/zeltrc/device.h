// The host that a chain belongs to.
#pragma once

#include "retrace.pb.h"

// Names and sizes of this host, looked up once a load. Figures that change between calls (what is used of processor,
// memory and disk) stay out: the same report must give the same chain. Sizes are in bytes, addresses those of IPv4.
const vorn_retrace::device_info& host_description();
