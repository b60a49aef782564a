// Starts and stops the plug-in of an agent folder, as an agent does: 0 when plugin_init answers 0, else 1.
#include <dlfcn.h>

#include <string>

int main(int, char** arguments) {
    const std::string root = arguments[1];
    dlopen((root + "/lib/liblumutil.so").c_str(), RTLD_NOW | RTLD_GLOBAL);
    void* const plugin = dlopen((root + "/reshdl/bin/libzelreshdl.so").c_str(), RTLD_NOW);
    if (plugin == nullptr) return 1;
    const auto init = reinterpret_cast<int (*)()>(dlsym(plugin, "plugin_init"));
    const auto uninit = reinterpret_cast<int (*)()>(dlsym(plugin, "plugin_uninit"));
    if (init == nullptr || uninit == nullptr) return 1;
    const int answer = init();
    uninit();
    return answer == 0 ? 0 : 1;
}
