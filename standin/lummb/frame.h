// The two objects of the bus that plug-ins hold. Both live as long as the process, whatever is released or unloaded.
#pragma once

#include <cstdint>

#include "platform/mbframe.h"

// Valid after Unadvise and after the library was closed, because a plug-in keeps it over its restarts.
MbFrame::IDispatch& bus_dispatcher();

// Adds a reference for the caller.
MbFrame::IRtmFrame* hand_out_frame();

// How many references to the frame were not given back.
uint64_t frame_references();
