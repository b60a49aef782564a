// How the replaced functions of this library count a call, and how they find the function that they stand before. Any
// thread may call all of it.
#pragma once

#include <dlfcn.h>

#define INTERPOSED extern "C" __attribute__((visibility("default")))
#define EXPORTED __attribute__((visibility("default")))

namespace failing_calls {

// Who may stand between the call and the plug-in besides the libraries that work for their caller. The sweep's own
// fopen is such a frame: the program defines that function, so this library cannot stand before it.
enum class Through { libraries, program };

// Counts the call if it is the plug-in's. True if it is the one that fails; then errno is `error`, and the line about
// it names the function and, behind a colon, the last part of `subject`.
bool fails(const char* function, int error, const char* subject = "", Through through = Through::libraries);

// True while this library or a function behind it runs on this thread. operator new calls malloc, and that call must
// not count again.
bool& inside();

// Marks the thread for as long as it lives.
struct Inside {
    Inside() { inside() = true; }
    ~Inside() { inside() = false; }
};

// The definition behind this library's own: that of a sanitizer, of the C or C++ library, or of the support library.
void* next_address(const char* name);

// The address is looked up at the first call of each function, since the library is in use before its constructors run.
template <class F>
F* next(F*& cached, const char* name) {
    if (cached == nullptr) cached = reinterpret_cast<F*>(next_address(name));
    return cached;
}
#define NEXT(type, name)                          \
    ([] {                                         \
        static type* cached = nullptr;            \
        return failing_calls::next(cached, name); \
    }())

}  // namespace failing_calls
