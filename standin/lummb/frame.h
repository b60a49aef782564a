// The objects of the bus that plug-ins hold. All live as long as the process, whatever is released or unloaded.
#pragma once

#include <cstdint>

#include "platform/mbframe.h"

// Valid after Unadvise and after the library was closed, since plug-ins keep it.
MbFrame::IDispatch& bus_dispatcher();

// Adds a reference for the caller.
MbFrame::IRtmFrame* hand_out_frame();

// References to the frame that are not given back.
uint64_t frame_references();
