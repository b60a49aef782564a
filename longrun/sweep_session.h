// One run of the call sweep. It plays the plug-in in its agent folder, step by step, each step to the moment at
// which nothing moves any more. What a step brought out goes to standard output as one line:
//
//   failed CALL THREAD FRAMES     the call that failed
//   armed|clean NAME|GROUP|OUTPUTS|NUMBER
//                                 a step: NAME is its own; steps of one GROUP depend on each other ("-" for none);
//                                 OUTPUTS are sorted texts; NUMBER is that of the last call
//   line TEXT                     a line of level ERROR or WARN in that step
//   ended NAME                    the plug-in ended the process in this step; the lines before it belong to it
//   wrong TEXT                    what must never be
//   end KEY=VALUE...              the balance
//
// All functions are called on the thread of main() unless they say otherwise.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/mbframe.h"
#include "platform/native_payloads.h"
#include "platform/zelreshdl.h"
#include "standin/lummb/lummb_host.h"

namespace sweep {

using namespace std::chrono_literals;

// What the trace module answers to one call: a code, with its input as the result or without a result.
struct Answer {
    int32_t code = 0;
    bool result = true;
};

enum class Rest { both, alarm_worker };  // who comes to rest at the end of a step

// Owns nothing of the plug-in but its handle, which stays open. There is one session in a process: the callbacks find
// it through a global pointer.
class Session {
public:
    // `root` is an agent folder, `flags` stands for the folder of the flag files.
    Session(std::string root, const std::string& flags);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // From here on the call with this number fails.
    void arm(uint64_t number);
    void disarm();

    // Runs an action and waits until nothing moves.
    void step(const std::string& name, const char* group, const std::function<void()>& action, Rest rest = Rest::both);
    // Within a step: adds a text to its outputs.
    void output(const std::string& text);

    void load();
    void start();  // twice if the first start answers -1
    void stop();
    // Stops while the trace worker is held, and lets it go when the alarm worker has ended.
    void stop_held();

    void send(uint32_t id, std::string_view data);
    void send_dns(const ST_DNS_NATIVE& record, const char* query_name);
    // The answers of the coming calls of a function of the trace module, by its number in zeltrc_host.h.
    void answer(uint32_t function, const std::vector<Answer>& answers);
    // While held, calls that build a chain do not return.
    void hold(bool held);
    // The next chain takes this long.
    void next_trace_takes(std::chrono::milliseconds time);
    void advance(std::chrono::milliseconds by);
    void file_trace(const char* path, const char* key, int kind);
    void process_trace(const char* data);
    void configure(const std::string& text);  // twice if it is refused, since what follows may need it
    // The reset period, on this thread.
    void reset_begin();
    void reset_end();
    // Collects the reports: the number of figures of each, or with `figures` the figures themselves, but for costs.
    void report(bool figures);
    // Makes or removes the flag file of the captures. While it is there, the copies of a step are among its outputs.
    void capture(bool on);
    void wait_for_bus();

    // The balance, after the last stop.
    void finish();

    // For the scripted library, on the thread of its caller.
    int32_t scripted_call(uint32_t function, const char* input, uint32_t input_size, char** result,
                          uint32_t* result_size);

private:
    template <class F>
    F* plugin_function(const char* name) const;
    void* symbol(const std::string& library, const char* name) const;
    void on_line(int32_t level, const char* text);
    void on_event(MbFrame::IEvent* event);
    static int on_callback(int code, uint32_t context, const char* buffer, uint32_t size);
    lummb_counts bus() const;
    void wait_until(const char* what, const std::function<bool()>& done);
    void come_to_rest(Rest rest);
    void worker_rests(const char* what, uint64_t (*sleeps)());
    void trace_worker_rests();
    void take_copies();
    void print_lines();
    [[noreturn]] void hang(const char* what);
    // The plug-in may end the process.
    static void on_exit();

    const std::string root_;
    const std::string flags_;
    // The step that is being played, for the line about a hang.
    std::string step_ = "load";
    bool armed_ = false;
    bool running_ = false;
    bool stopped_once_ = false;  // no events come any more
    bool captures_ = false;
    void* plugin_ = nullptr;
    lummb_get_counts_t get_counts_ = nullptr;
    lummb_publish_t publish_ = nullptr;

    mutable std::mutex mutex_;  // guards all below
    std::vector<std::string> outputs_;
    std::vector<std::string> lines_;
    uint64_t bad_lines_ = 0;
    uint64_t ignored_ = 0;
    bool held_ = false;
    std::chrono::milliseconds trace_time_{0};
    std::map<uint32_t, std::deque<Answer>> answers_;
    std::map<uint32_t, uint64_t> calls_;
    std::set<char*> results_;  // handed out by the trace module and not given back
};

// Plays all of it: the part in which calls may fail, then everything once again without a failure.
void play(Session& session, uint64_t number);

}  // namespace sweep
