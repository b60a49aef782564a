// The business-point SDK. A report becomes one line of the agent's log.
#include <cstdarg>
#include <cstdio>

#include "platform/zel_bp.h"
#include "standin/agent_log.h"
#include "standin/export.h"

extern "C" {

STANDIN_EXPORT int32_t zel_bp_init(void) { return 0; }
STANDIN_EXPORT int32_t zel_bp_uninit(void) { return 0; }

// 0, or -1 without a head or a format. The text is cut to 2047 bytes.
STANDIN_EXPORT __attribute__((format(printf, 2, 3))) int32_t zel_bp_trace_utf8(const ST_BP_TRACE_HEAD* head,
                                                                               const char* format, ...) {
    if (head == nullptr || format == nullptr) return -1;
    char text[2048];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    // A member that is filled to its last byte has no terminator.
    AGENT_LOG(ZEL_LOG_INFO, "INFO", "[zel_bp]", "%.32s %.64s %.16s %.16s %.16s: %s", head->szModule, head->szFunction,
              head->szProduct, head->szVersion, head->szAgentId, text);
    return 0;
}

// The other three ways in accept anything and show nothing: the plug-in only looks them up.
STANDIN_EXPORT int32_t zel_bp_trace(const ST_BP_TRACE_HEAD*, const char*, ...) { return 0; }
STANDIN_EXPORT int32_t zel_bp_trace_unicode(const ST_BP_TRACE_HEAD*, const void*, ...) { return 0; }
STANDIN_EXPORT int32_t zel_bp_other(const ST_BP_TRACE_HEAD*, const void*, ...) { return 0; }

}  // extern "C"
