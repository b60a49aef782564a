#include "check/status_libraries.h"

#include <dlfcn.h>

#include <algorithm>
#include <memory>

#include "common/zel_bpsdk_api.h"
#include "decode/processtreeselector.h"
#include "pipeline/sibling_modules.h"
#include "plugin/zelbpmgr_api.h"
#include "plugin/zelreshdl_engine.h"

namespace zel::check {
namespace {

const StatusLibrary kLibraries[] = {
    {kBpSdk, "reporting SDK", Need::reports, "reports of busy queues"},
    {kOdaIpc, "host id", Need::reports, "looked up, not called"},
    {kBpManager, "report manager", Need::reports, "statistics"},
    {kBus, "message bus", Need::start, "events in and out"},
    {kDataStore, "data store", Need::full_operation, "behaviour chains"},
    {kTraceModule, "trace module", Need::full_operation, "behaviour chains"},
    {kAdapter, "adapter", Need::alerts, "looked up, not called"},
};

}  // namespace

std::span<const StatusLibrary> status_libraries() { return kLibraries; }

bool FoundLibrary::complete() const {
    return reason.empty() && std::ranges::all_of(functions, [](const auto& function) { return function.found == 1; });
}

// The loader takes an empty path for the program itself. All functions are looked up, also behind one that is missing,
// so that people see all that is wrong.
FoundLibrary find_library(const zel::LibraryRow& row, zelcheck_trial_t trial, void* context) {
    FoundLibrary found;
    const std::string path = row.where();
    const char* const why_not = path.empty() ? "the path is too long" : trial(context, path.c_str());
    const std::unique_ptr<void, int (*)(void*)> handle(
        why_not != nullptr ? nullptr : dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL), dlclose);
    if (handle == nullptr) found.reason = why_not != nullptr ? why_not : dlerror();
    for (const char* const name : row.functions)
        found.functions.push_back({name, handle != nullptr && dlsym(handle.get(), name) != nullptr});
    return found;
}

}  // namespace zel::check
