// Copies of sent buffers for diagnosis, written while the flag file "/root/kq-agent/reshdlproto_flag" exists.
#pragma once

#include <cstdint>

enum class CaptureKind : uint32_t {
    ioa_alarm = 0,
    ioa_trc = 1,
    ioc_alarm = 2,
    ioc_trc = 3,
    kov_alarm = 4,
    kov_trc = 5
};

// Writes the buffer to a numbered file and its size to a side file. Never fails the caller; a null buffer has size 0.
void CaptureData(const char* pBuffer, uint64_t uSize, CaptureKind eKind);

// The same for a trace result, by the id of its event; ids other than 1281, 1536 and 1793 are not captured.
void CaptureTraceData(const char* pBuffer, uint64_t uSize, uint32_t uEventId);
