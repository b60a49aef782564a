// The libraries that the plug-in opens, with what each is for.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "check/zelcheck_host.h"
#include "common/module_path.h"

namespace zel::check {

enum class Need { start, full_operation, nothing };

struct StatusLibrary {
    const zel::LibraryRow& row;
    const char* title;
    Need need;        // what fails without it
    const char* use;  // for people
};

// In the order in which a start opens them; the last one is opened at the first alert.
std::span<const StatusLibrary> status_libraries();

// What the loader finds at the path of a row. The library is closed again.
struct FoundLibrary {
    std::string reason;  // the loader's words; empty when it can be opened
    std::vector<zelcheck_function> functions;

    bool complete() const;
};
FoundLibrary find_library(const zel::LibraryRow& row);

}  // namespace zel::check
