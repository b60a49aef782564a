// The built plug-in in an agent folder of the test's own, driven through its exports and the bus.
//
// The plug-in keeps state for the life of the process, so each test runs in a process of its own. Waits are for a
// condition, with a deadline in real time; a test that fails shows the end of the log.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/lib/alert.h"
#include "host/lib/dns_event.h"
#include "host/lib/libraries.h"
#include "host/lib/overrides.h"
#include "platform/zel_trc.h"
#include "retrace.pb.h"
#include "standin/scripted/scripted_host.h"

namespace e2e {

using namespace std::chrono_literals;
using namespace zelhost::overrides;

// Named here as the tests call them.
using zelhost::Alert;
using RawEvent = zelhost::AlertEvent;
using Rule = zelhost::AlertRule;
inline std::string guid(int number) { return zelhost::guid_text(static_cast<uint64_t>(number)); }

struct DnsHit {
    std::string domain = "bad.example";
    uint32_t pid = 77;
    uint64_t time = 5000;
    std::string query_name = "bad.example";
    std::string path = "/usr/bin/curl";  // as it stands in JSON
};

constexpr int32_t kTraceFails = -5;

// An event that the plug-in published.
struct Published {
    uint32_t id = 0;
    uint32_t source = 0;  // 0 when the record or the message is not well-formed
    std::string guid;
    std::string bytes;  // of a memory check: its numbers, path and the eleven texts, "-" for null
    vorn_retrace::vorn_trace_info message;
};

// What the trace module answers to one call: a code, with its input as the result, without a result, or with the size
// of a result that is not there.
struct Answer {
    int32_t code = 0;
    bool result = true;
    bool size_alone = false;
};

// One call of the host's result callback.
struct Callback {
    int code = 0;
    uint32_t context = 0;
    std::string bytes;
};

// What the process has seen. Never destroyed: worker threads may outlive a failed test.
struct Seen {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;                  // without their prefix
    std::vector<std::string> bad_lines;              // whose prefix is not that of all lines
    std::vector<std::pair<Published, bool>> events;  // and whether it was taken
    std::vector<Callback> callbacks;
    std::map<uint32_t, std::deque<Answer>> scripts;
    std::map<uint32_t, uint64_t> calls;
    std::map<uint32_t, std::function<void()>> hooks;
    std::set<char*> outstanding;
    bool held = false;
};
extern Seen& seen;

auto locked(const auto& body) {
    const std::lock_guard lock(seen.mutex);
    return body();
}

// The answer of a report callback; a number by its key, -1 when there is none.
struct Report {
    int32_t result = -1;
    std::string text;
    int64_t operator[](const std::string& key) const;
};

// Open for good.
const zelhost::Bus& bus();

// The texts between bars.
std::vector<std::string> split(const std::string& texts);

// Names of the plug-in's threads.
std::multiset<std::string> workers();

bool wait_until(const std::function<bool()>& done);
#define EXPECT_SOON(condition) EXPECT_TRUE(wait_until([&] { return condition; })) << #condition

// The name of a row of a table.
inline constexpr auto row_name = [](const auto& row) { return std::string(row.param.name); };

class Agent : public testing::Test {
protected:
    Agent();
    // Stops the plug-in and expects nothing left behind: bus events, references, result buffers, threads.
    void TearDown() override;

    // Files of the agent folder. A setting that a test sets wins over the staged one.
    std::string path(const std::string& name) const { return root_ + "/" + name; }
    void write(const std::string& name, const std::string& text) const;
    std::string read(const std::string& name) const;
    void set(const std::string& ini, const std::string& section, const std::string& line) const;
    // Takes a library away, or puts another of the staged ones or the scripted one in its place.
    void replace(const std::string& library, const std::string& by = {}) const;

    // The exports.
    const zelhost::Plugin& plugin() const;
    int init() {
        const int result = plugin().init();
        running_ = result == 0;
        return result;
    }
    void start() { ASSERT_EQ(init(), 0); }
    void stop() {
        running_ = false;
        EXPECT_EQ(plugin().uninit(), 0);
    }

    int32_t publish(uint32_t id, std::string_view data) const { return bus().publish(id, data.data(), data.size()); }
    void send(uint32_t id, std::string_view data) const { EXPECT_EQ(publish(id, data), LUMMB_OK); }
    void send(const Alert& alert, uint32_t id = 1536) const { send(id, alert.text()); }
    // `kind` stands in the record instead of that of its variant record, unless it is 0.
    void send_dns(const std::string& json, uint32_t kind = 0) const;
    void send(const DnsHit& hit) const;

    // The next event of that id, and of that GUID unless empty, that was not yet taken.
    Published expect_event(uint32_t id, const std::string& guid = {});
    size_t count_events(uint32_t id) const {
        return count(seen.events, [id](const auto& event) { return event.first.id == id; });
    }
    // In both, bars separate the texts. The first gives those that are in the log, in its order, each as often as it is
    // there; the second waits until each is there.
    std::string log_order(const std::string& texts) const;
    void expect_logs(const std::string& texts) const {
        for (const auto& text : split(texts)) expect_log(text, 1);
    }
    size_t count_log(const std::string& text) const {
        return count(seen.lines, [&](const auto& line) { return line.find(text) != std::string::npos; });
    }
    void expect_log(const std::string& text, size_t count) const { EXPECT_SOON(count_log(text) >= count) << text; }
    Callback expect_callback(uint32_t context) const;
    size_t count_callbacks(uint32_t context) const {
        return count(seen.callbacks, [&](const auto& call) { return call.context == context; });
    }

    // Waits until the bus has delivered all events, in both directions.
    void bus_rests() const { EXPECT_SOON(bus().counts().waiting == 0 && bus().counts().sending == 0); }
    // Waits for that and until the alarm worker has finished with all events.
    void settle() const;
    // Waits until the worker whose sleeps these are has come round its loop with nothing to do.
    void rests(uint64_t (*sleeps)()) const {
        const uint64_t before = sleeps();
        EXPECT_SOON(sleeps() >= before + 2);
    }

    // Scripts a function of the trace module, by its number; the last answer stays. Without a script the code is 0 and
    // the result is the input.
    void answers(uint32_t function, const std::vector<Answer>& script) const {
        locked([&] { seen.scripts[function].assign(script.begin(), script.end()); });
    }
    // Runs `hook` on the thread that calls the function, before it is answered.
    void when_called(uint32_t function, std::function<void()> hook) const {
        locked([&] { seen.hooks[function] = std::move(hook); });
    }
    // While held, traces and completions do not return.
    void hold_traces(bool hold) const {
        locked([&] { seen.held = hold; });
        seen.changed.notify_all();
    }
    // Lets the alarm worker run into such a call, of a KOV alert.
    void hold_alarm_worker() const;
    uint64_t calls(uint32_t function) const {
        return locked([&] { return seen.calls[function]; });
    }

    Report report(const std::string& module = "zelreshdl", uint32_t buffer_size = 4096) const;
    // Asks for a report and compares the figures named.
    void expect_figures(const std::map<std::string, int64_t>& figures) const;
    int configure(const std::string& text) const {
        return plugin().configuration_update(text.c_str(), static_cast<uint32_t>(text.size()));
    }
    int file_trace(int kind, uint32_t context, const char* path = "/tmp/x", const char* key = "k") const;
    int process_trace(uint32_t context, const char* data = "{}") const;
    void reset_begin() const { plugin().begin_reset(); }
    void reset_end() const { plugin().end_reset(); }

    size_t kept_results_ = 0;  // most result buffers that may stay

private:
    size_t count(const auto& list, const auto& counts) const {
        return locked([&] { return static_cast<size_t>(std::ranges::count_if(list, counts)); });
    }

    std::string root_;
    bool running_ = false;
};

}  // namespace e2e
