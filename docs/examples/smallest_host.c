/* The smallest host: loads the plug-in from an agent folder, starts it, waits for the end of standard input and stops
 * it.
 *
 *     cc -o smallest_host docs/examples/smallest_host.c
 *     ./smallest_host AGENT_FOLDER
 */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

static void* load(const char* folder, const char* file, int flags) {
    char path[4096];
    snprintf(path, sizeof path, "%s/%s", folder, file);
    void* library = dlopen(path, RTLD_NOW | flags);
    if (library == NULL) {
        fprintf(stderr, "smallest_host: %s\n", dlerror());
        exit(1);
    }
    return library;
}

static int call(void* plugin, const char* export) {
    int (*function)(void) = (int (*)(void))dlsym(plugin, export);
    if (function != NULL) return function();
    fprintf(stderr, "smallest_host: %s\n", dlerror());
    exit(1);
}

int main(int count, char** arguments) {
    if (count != 2) {
        fputs("usage: smallest_host AGENT_FOLDER\n", stderr);
        return 2;
    }
    /* Its functions must be visible to the plug-in and to the libraries that the plug-in loads. */
    load(arguments[1], "lib/liblumutil.so", RTLD_GLOBAL);
    void* plugin = load(arguments[1], "reshdl/bin/libzelreshdl.so", RTLD_LOCAL);
    if (call(plugin, "plugin_init") != 0) return 1; /* the log says why; nothing is left to stop */
    call(plugin, "plugin_start");
    while (getchar() != EOF) continue;
    call(plugin, "plugin_stop");
    call(plugin, "plugin_uninit");
    return 0;
}
