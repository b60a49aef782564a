// Between the plug-in and the outside: what the plug-in asks of clocks, mutexes, GUIDs, files and the trace module goes
// through an object of the host, which may note the answer or give another.
//
// The program has functions of the same names as those of the libraries, and they win over the libraries' because it
// exports them (EXPORTED in host/CMakeLists.txt). Without an object, and for every caller but the plug-in, they do what
// the libraries' would.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "record.pb.h"

namespace zelhost {

// Implemented by the recorder, which asks the real outside and notes the answer, and by the player,
// which answers from the record. All threads of the plug-in may ask at once.
class Outside {
public:
    // What record.proto says of an answer. Without data it is a null pointer.
    struct Answer {
        int64_t number = 0;
        std::optional<std::string> data{};
    };
    // Asks the outside itself.
    using Real = std::function<Answer()>;

    // The guard borrows the object and does not destroy it.
    virtual ~Outside() = default;

    // On the thread of the plug-in that asks. Must not throw.
    virtual Answer ask(record::Question question, const Real& real) = 0;
    // The file that the plug-in opens in place of one with that answer to FILE_SIZE; it is then told that size. None:
    // it opens the file itself.
    virtual std::optional<std::string> place_of_file(int64_t size) = 0;
};

// Sends the questions of the plug-in in this file to an object for as long as this one lives: from before the plug-in
// is loaded, since it looks at the clock then, until it has stopped. There is one at a time.
class OutsideGuard {
public:
    // `plugin` is the file of the plug-in. Callers are known by whether their code lies in it.
    OutsideGuard(const std::filesystem::path& plugin, Outside& outside);
    // From here on every question is answered by the libraries again. No thread of the plug-in may
    // be asking then.
    ~OutsideGuard();
    OutsideGuard(const OutsideGuard&) = delete;
    OutsideGuard& operator=(const OutsideGuard&) = delete;
};

// Which of a session's threads this is. The main thread is the host's; the others are known by their names.
record::Role role_of_this_thread();

}  // namespace zelhost
