// Copies of sent buffers, for diagnosis. They are written while the flag file "/root/kq-agent/reshdlproto_flag" exists,
// so support can switch them on and off at a running agent. Both workers call these functions; there is no lock.
#pragma once

#include <cstdint>

inline constexpr const char* kCaptureFlag = "/root/kq-agent/reshdlproto_flag";
// Whether the flag file is there and can be read.
bool is_capture_on();

// Which file a copy goes to. The values are the rows of the table of file names.
enum class CaptureKind : uint32_t {
    ioa_alarm = 0,
    ioa_trc = 1,
    ioc_alarm = 2,
    ioc_trc = 3,
    kov_alarm = 4,
    kov_trc = 5
};

// Writes the buffer to a numbered file and adds a line with its size to a side file. A copy that cannot be written is
// lost without a log line: diagnosis must not disturb the report. A null buffer has size 0.
void CaptureData(const char* pBuffer, uint64_t uSize, CaptureKind eKind);

// Writes the result of a trace. The id is that of the alert that was traced; only 1281, 1536 and 1793 have a file.
void CaptureTraceData(const char* pBuffer, uint64_t uSize, uint32_t uEventId);
