// The business-point manager. It keeps one report callback for each module and asks them when a host wants reports.
#include "standin/zelbpmgr/zelbpmgr_host.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/zel_bp.h"
#include "standin/export.h"

namespace {

// One registration. A thread that collects shares it, so it outlives its removal from the list.
struct Module {
    std::string name;
    zel_report_cb_t callback;              // null once unregistered
    std::vector<std::thread::id> running;  // threads that are in the callback
};

// The registrations under one lock. No callback runs under the lock, since a callback may register or unregister.
class Registry {
public:
    // Replaces a former callback of the module and waits until it has ended. While it waits another thread may register
    // the module, so it looks again.
    void add(const char* name, zel_report_cb_t callback) {
        std::unique_lock lock(mutex_);
        while (take_out(name, lock)) {
        }
        modules_.push_back(std::make_shared<Module>(Module{name, callback, {}}));
    }

    // False if there was no such module. When this returns, no callback of the module is running, except one that
    // called this.
    bool remove(const char* name) {
        std::unique_lock lock(mutex_);
        return take_out(name, lock);
    }

    std::vector<std::shared_ptr<Module>> list() const {
        const std::lock_guard lock(mutex_);
        return modules_;
    }

    // Calls the module's callback without the lock. False if it was unregistered meanwhile.
    bool ask(Module& module, std::vector<char>& buffer, int32_t& result) {
        const auto self = std::this_thread::get_id();
        zel_report_cb_t callback = nullptr;
        {
            const std::lock_guard lock(mutex_);
            if (module.callback == nullptr) return false;
            module.running.push_back(self);
            callback = module.callback;
        }
        // A size of 0 means a null buffer: a callback must cope with that.
        result = callback(buffer.empty() ? nullptr : buffer.data(), static_cast<uint32_t>(buffer.size()));
        const std::lock_guard lock(mutex_);
        module.running.erase(std::ranges::find(module.running, self));
        ended_.notify_all();
        return true;
    }

private:
    bool take_out(const char* name, std::unique_lock<std::mutex>& lock) {
        const auto at = std::ranges::find(modules_, name, [](const auto& known) { return known->name; });
        if (at == modules_.end()) return false;
        const std::shared_ptr<Module> module = *at;
        modules_.erase(at);
        module->callback = nullptr;
        // A callback that unregisters itself must not wait for its own end.
        const auto own = [self = std::this_thread::get_id()](std::thread::id id) { return id == self; };
        ended_.wait(lock, [&] { return std::ranges::all_of(module->running, own); });
        return true;
    }

    mutable std::mutex mutex_;
    std::condition_variable ended_;
    std::vector<std::shared_ptr<Module>> modules_;
} registry;

uint32_t collect(uint32_t buffer_size, zelbpmgr_report_t report, void* context) {
    uint32_t asked = 0;
    // A copy of the list: modules may come and go while the callbacks run.
    for (const auto& module : registry.list()) {
        std::vector<char> buffer(buffer_size);
        int32_t result = 0;
        if (!registry.ask(*module, buffer, result)) continue;
        ++asked;
        // A callback may fill the buffer to its last byte, so the end of the text is looked for and not trusted.
        const std::string text(buffer.begin(), std::ranges::find(buffer, '\0'));
        if (report != nullptr) report(context, module->name.c_str(), result, text.c_str());
    }
    return asked;
}

}  // namespace

extern "C" {

// 0, or -1 without a name and for a module that is not registered. A second callback replaces the first.
STANDIN_EXPORT int32_t register_report_cb(const char* module, zel_report_cb_t callback) try {
    if (module == nullptr || *module == '\0') return -1;
    if (callback == nullptr) return registry.remove(module) ? 0 : -1;
    registry.add(module, callback);
    return 0;
} catch (const std::exception&) {
    return -1;
}

STANDIN_EXPORT uint32_t zelbpmgr_collect(int32_t thread, uint32_t buffer_size, zelbpmgr_report_t report,
                                         void* context) try {
    if (thread == ZELBPMGR_CALLER) return collect(buffer_size, report, context);
    uint32_t asked = 0;
    // An exception must not leave the thread, so it is carried to the caller.
    std::exception_ptr failure;
    std::thread([&] {
        try {
            asked = collect(buffer_size, report, context);
        } catch (...) {
            failure = std::current_exception();
        }
    }).join();
    if (failure != nullptr) std::rethrow_exception(failure);
    return asked;
} catch (const std::exception&) {
    return 0;
}

}  // extern "C"
