// The exports. The host resolves them by name and calls them from any thread; plugin_init and plugin_uninit come from
// one thread. Nothing throws.
#pragma once

#include <stdint.h>

#include "common/queue_nodes.h"

#pragma GCC visibility push(default)
extern "C" {

int plugin_init(void);    // 0 started, -1 failed with log lines
int plugin_uninit(void);  // always 0; waits for the workers
int plugin_start(void);   // the next three log and do nothing else; always 0
int plugin_stop(void);
int plugin_update(void);
// A terminated JSON document and any size but 0. 0 applied, -1 refused.
int plugin_configuration_update(const char* data, uint32_t size);
// Both: 0 done, -1 failed, -2 the data store is being reset. The texts are copied; the callback gets `context`.
int reshdl_file_trace(fn_server_ret_t fun, const char* path, const char* file_key, int kind, uint32_t context);
int reshdl_process_trace(fn_server_ret_t fun, const char* data, uint32_t size, uint32_t context);
void reset_db_begin(void);
void reset_db_end(void);

}  // extern "C"
#pragma GCC visibility pop
