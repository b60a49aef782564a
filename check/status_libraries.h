// The libraries that the plug-in opens, with what each is for.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "check/zelcheck_host.h"
#include "common/module_path.h"

namespace zel::check {

enum class Need {
    start,           // fails without it
    full_operation,  // fails without it; pure mode does not open it
    reports,         // opened by a start, which goes on without it
    alerts,          // opened at the first alert, which goes on without it
};

// One library. The rows are constant and live as long as this library.
struct StatusLibrary {
    const zel::LibraryRow& row;
    const char* title;
    Need need;
    const char* use;  // for people

    bool is_used(bool pure_mode) const { return need != Need::full_operation || !pure_mode; }
    bool is_required(bool pure_mode) const { return need <= Need::full_operation && is_used(pure_mode); }
    bool is_opened_by_start(bool pure_mode) const { return need != Need::alerts && is_used(pure_mode); }
};

// In the order in which they are opened.
std::span<const StatusLibrary> status_libraries();

// What the loader finds at the path of a row. The library is closed again.
struct FoundLibrary {
    std::string reason;  // why it cannot be opened, as the trial or the loader says it; empty when it can
    std::vector<zelcheck_function> functions;

    bool complete() const;
};
FoundLibrary find_library(const zel::LibraryRow& row, zelcheck_trial_t trial, void* context);

}  // namespace zel::check
