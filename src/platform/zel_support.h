// The agent's support library, liblumutil.so. Its functions have C linkage; the dynamic linker resolves them.
//
// For all functions: any thread may call them. A path or a text is UTF-8 and ends with a zero byte. A result of type
// int32_t is 0 on success and negative on failure, unless stated otherwise. Functions on a mutex, a thread or a module
// accept a null handle and answer negative.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Exported where they are defined, whatever visibility the build presets.
#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

enum { ZEL_LOG_ERROR = 0, ZEL_LOG_WARN = 1, ZEL_LOG_INFO = 2, ZEL_LOG_DEBUG = 3 };

// One log line. The variadic part starts with long pid, const char* tag, const char* file, int line. Returns 0. The
// arguments are read during the call and not kept.
int32_t zel_log_output(int32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// *mutex receives a recursive mutex. The caller ends it with zel_mutex_destroy when no thread holds it.
int32_t zel_mutex_init(void** mutex);
int32_t zel_mutex_lock(void* mutex);
int32_t zel_mutex_unlock(void* mutex);
int32_t zel_mutex_destroy(void* mutex);

// Starts a thread that runs entry(param). *thread must be given to zel_thread_join exactly once. zel_thread_join waits
// for the end of the thread and frees the handle.
int32_t zel_thread_start(void** thread, int (*entry)(void*), void* param);
int32_t zel_thread_join(void* thread);

// Loads a library by its path and binds all its symbols. *module is null after a failure. zel_dll_get_addr writes null
// to *address when there is no such symbol.
int32_t zel_dll_open(const char* path, void** module);
int32_t zel_dll_get_addr(void* module, const char* name, void** address);
int32_t zel_dll_close(void* module);

// "@/" at the start becomes the folder of the calling module. The library finds that module by the return address, so a
// call in tail position would give the folder of the caller's caller. Other paths are copied. When the result with its
// terminator does not fit into `size`, that is a failure.
int32_t zel_dirutils_path_transform(const char* path, char* out, uint32_t size);

// 1 if something exists at the path, else 0.
int32_t zel_path_is_exist_u(const char* path);

// *ini receives a parsed file, which the caller gives to zel_ini_file_free. zel_ini_file_get answers null when there is
// no such section or key; its text lives as long as the handle.
int32_t zel_ini_file_load(const char* path, void** ini);
const char* zel_ini_file_get(void* ini, const char* section, const char* key);
void zel_ini_file_free(void* ini);

// Both terminate `dest` when `size` is above 0. Both return the length that the whole text has.
size_t zel_str_strlcpy(char* dest, const char* source, size_t size);
int32_t zel_str_snprintf(char* dest, size_t size, const char* format, ...) __attribute__((format(printf, 3, 4)));

// Milliseconds of a clock that never goes back; its start is arbitrary.
uint64_t zel_time_get_tick_cout(void);

// Runs init(argument) once for each flag, which starts at 0. A second caller waits until the first has finished.
void zel_singleton_once(int32_t* once, void (*init)(void*), void* argument);

// Sequentially consistent; returns the new value.
int64_t zel_atomic64_add_and_fetch(volatile int64_t* value, int64_t delta);

// Writes the path under which the agent reaches a file of a container: the first `length` bytes of `path`, and
// "/proc/INIT_PID/root" before them when init_pid is above 0. The result is cut to `size` and terminated.
int32_t get_agent_path(const char* path, uint32_t length, int32_t init_pid, char* out, uint32_t size);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
