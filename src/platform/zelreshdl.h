// The ten functions that the plug-in exports. They are its whole contract with the agent's host process.
//
// The host loads the library and resolves them by name. It may call them from any thread, but plugin_init and
// plugin_uninit come from one thread and never at the same time. No exception leaves any of them.
#pragma once

#include <stdint.h>

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

// The host's callback for results. `code` is 8 for a file trace and 10 for a process trace. `context` is the value that
// the host gave with the request. `buffer` holds a serialised vorn_trace_info of `size` bytes; it belongs to the
// plug-in, is valid during the call, and may be null with a size of 0. The callback's own result is ignored.
typedef int (*fn_server_ret_t)(int code, uint32_t context, const char* buffer, uint32_t size);

// Starts reporting, bus, settings, sibling modules and workers. The answer is 0, or -1 with log lines after everything
// was undone.
int plugin_init(void);
// Detaches from the bus, joins the workers and discards what is queued. Always 0.
int plugin_uninit(void);

// These three write a log line and do nothing else. Always 0.
int plugin_start(void);
int plugin_stop(void);
int plugin_update(void);

// Sets the live limits from `data`, a terminated JSON text. `size` may be any number but 0. 0 for applied, -1 for
// refused.
int plugin_configuration_update(const char* data, uint32_t size);

// Traces on demand. Texts and data are copied. Both functions answer 0 for done, -1 for failed, -2 while the data store
// is being reset. A `kind` of 1 means a file, any other the processes of a path. The callback comes later, on the trace
// worker, unless the trace fails.
int reshdl_file_trace(fn_server_ret_t fun, const char* path, const char* file_key, int kind, uint32_t context);
// The trace runs on the caller's thread, and so does the callback, before the function returns.
int reshdl_process_trace(fn_server_ret_t fun, const char* data, uint32_t size, uint32_t context);

// The reset period of the data store. From begin to end the sibling modules are unloaded, traces wait and events are
// ignored.
void reset_db_begin(void);
void reset_db_end(void);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
