// Libraries are opened from the outside in: the support functions first, the plug-in last. They are closed the other
// way round, after everything that was given to them has been taken back.
#include "host/lib/session.h"

#include <pthread.h>

#include <algorithm>
#include <ranges>
#include <thread>
#include <utility>

#include "host/lib/console.h"
#include "host/lib/failure.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;

// Steps are counted, not time: a long run has clocks of its own.
// Up to 10 000 steps of a millisecond, which is ten seconds by the machine's clock.
constexpr auto kDrainStep = 1ms;
constexpr int kDrainSteps = 10'000;
// How long a publisher waits before it asks a full bus again.
constexpr auto kFullPause = 100us;

// The one session of the process, for the plug-in's result callback.
// The call-back of a trace gets no pointer of the host's, so it finds its session here.
std::atomic<Session*> current = nullptr;

// Runs what a library has called back for. No exception goes through the library's frames.
// `what` completes the sentence "cannot ...".
template <class Act>
void guarded(const char* what, const Act& act) {
    try {
        act();
    } catch (const std::exception& e) {
        console::say("cannot {}: {}", what, e.what());
    }
}

// An agent may lack a library that only a stand-in has.
template <class Record>
void open_if_there(std::optional<Record>& record, const std::filesystem::path& path) {
    if (std::filesystem::exists(path)) record.emplace(path);
}

// Tells the client of what goes in for as long as this lives.
// The second call comes at every return, also after an exception.
class Told {
public:
    Told(Client& client, const Input& input) : client_(client), input_(input) { client_.on_input(input_); }
    ~Told() { client_.on_input_done(input_); }
    Told(const Told&) = delete;
    Told& operator=(const Told&) = delete;

private:
    Client& client_;
    const Input input_;
};

// What is delivered at this moment counts as waiting.
// Both directions count: events for the plug-in, and events that it has sent.
bool at_rest(const lummb_counts& bus) { return bus.waiting == 0 && bus.sending == 0; }

}  // namespace

bool Client::pause_publishing() {
    std::this_thread::sleep_for(kFullPause);
    return true;
}

// A step that fails does not keep the others from being taken.
Undo::~Undo() {
    // What was done last may depend on what was done before it, so it is taken back first.
    for (const auto& step : std::views::reverse(steps_)) guarded("end a session", step);
}

// Members are made in the order in which the header has them. So the support functions are there
// before the bus and the plug-in look for them.
Session::Session(const AgentFolder& folder, Client& client, int visibility)
    : folder_(folder),
      client_(client),
      support_{Library(folder_.root() / "lib/liblumutil.so", RTLD_GLOBAL)},
      support_in_use_(support_),
      bus_{folder_.library("liblummb.so")},
      plugin_{{folder_.plugin(), visibility}} {
    // The second session of a process is refused before it can change anything.
    Session* none = nullptr;
    if (!current.compare_exchange_strong(none, this)) throw Failure("there is a session already in this process");
    undo_.add([] { current = nullptr; });
    watch_log();
    // The counting library is the stand-in's. The agent's own trace module has none.
    open_if_there(trace_, folder_.library("libzelcount.so"));
    if (trace_ && trace_->set_explainer) {
        trace_->set_explainer(explain_buffer, this);
        undo_.add([this] { trace_->set_explainer(nullptr, nullptr); });
    }
    open_if_there(manager_, folder_.library("libzelbpmgr.so"));
    subscribe();
}

// Without the tap, the counter knows only what crosses the bus.
void Session::watch_log() {
    if (!support_.set_log_tap) return;
    support_.set_log_tap(take_log_line, this);
    reads_log_ = true;
    undo_.add([this] { support_.set_log_tap(nullptr, nullptr); });
}

// The subscriptions stay over restarts of the plug-in, so that what it sends while it stops is seen, too.
void Session::subscribe() {
    // The token is what takes the subscription back.
    const auto take = [this](uint32_t event_id, lummb_sink_t sink) {
        const uint64_t token = bus_.subscribe(event_id, sink, static_cast<void*>(this));
        undo_.add([this, token] { bus_.unsubscribe(token); });
    };
    for (const uint32_t id : {event_id::first_report, event_id::finished_trace, event_id::credible_report})
        take(id, take_event);
    take(event_id::mem_detect, take_memory_check);
    // The bus asks these functions before each event that it moves.
    const lummb_order order{this, take_choice, take_delivery, take_delivered, take_sending};
    bus_.set_order(&order);
    // A null pointer gives the bus its own order back.
    undo_.add([this] { bus_.set_order(static_cast<const lummb_order*>(nullptr)); });
}

// An event that is still on the bus may call into the plug-in, which then has to stay.
Session::~Session() {
    guarded("stop the plug-in", [this] { stop(); });
    // The library stays in memory then. A call into a library that is gone would end the process.
    if (!at_rest(bus_.counts())) plugin_.library.keep();
}

// In pure mode no trace module is loaded, and nothing about it is missed.
std::vector<std::string> Session::unknown() const {
    std::vector<std::string> sentences;
    // One sentence for each library that is another one than the stand-in.
    const auto miss = [&](const char* library, const char* what) {
        sentences.push_back(fmt::format("{} is not the stand-in: {}", library, what));
    };
    if (!support_.set_log_tap)
        miss("liblumutil.so", "what becomes of an event without a report is not shown, nor are waiting traces");
    if (started_ && trace_module_ && !trace_counts())
        miss("libzeltrc.so", "its buffers are not counted, and traces are followed by the log alone");
    if (!can_collect()) miss("libzelbpmgr.so", "the plug-in's own statistics are not shown");
    return sentences;
}

// Whether there is a trace module is looked up once, since a reset period unloads it for a while.
int Session::start() {
    const Told told(client_, {.kind = Input::start});
    started_ = true;
    const int answer = plugin_.init();
    // Once true it stays so.
    trace_module_ = trace_module_ || is_loaded(folder_.library("libzeltrc.so"));
    // A host that could not initialise the plug-in does not start it.
    if (answer == 0) plugin_.start();
    return answer;
}

// Also after a start that failed, as an agent does. The counter forgets the threads only when the bus has come to rest:
// until then its thread may still be in the middle of an event.
uint64_t Session::stop() {
    // A second stop finds nothing to do.
    if (!std::exchange(started_, false)) return 0;
    const Told told(client_, {.kind = Input::stop});
    // What was on its way at this moment may be released after the trace module was unloaded.
    const lummb_counts before = bus_.counts();
    plugin_.stop();
    plugin_.uninit();
    drain();
    figures_.workers_ended();
    return before.sending + bus_.counts().sent - before.sent;
}

// The plug-in formats no line then, unless its logger writes it.
void Session::leave_log() {
    // The tap is what makes the plug-in format lines that the logger would drop.
    support_.set_log_tap(nullptr, nullptr);
    reads_log_ = false;
}

// --- what comes back ---

// The logger's own lock makes these calls one at a time.
// The thread's number tells the counter which event the line belongs to.
void Session::take_log_line(void* session, int32_t level, const char* text) {
    guarded("count a log line", [&] {
        auto& self = *static_cast<Session*>(session);
        self.client_.on_log_line(self.figures_.log_line(static_cast<uint64_t>(pthread_self()), level, text));
    });
}

int32_t Session::take_choice(void* session) {
    // Should the client throw, the bus decides by itself.
    int32_t choice = LUMMB_EITHER;
    guarded("choose an event", [&] { choice = static_cast<Session*>(session)->client_.choose_next(); });
    return choice;
}

void Session::take_delivery(void* session) {
    guarded("follow an event", [&] { static_cast<Session*>(session)->client_.on_delivery(); });
}

void Session::take_delivered(void* session) {
    guarded("follow an event", [&] { static_cast<Session*>(session)->client_.on_delivered(); });
}

void Session::take_sending(void* session, void (*enqueue)(void*), void* argument) {
    // The function and its argument are valid during this call.
    guarded("send an event",
            [&] { static_cast<Session*>(session)->client_.on_send([enqueue, argument] { enqueue(argument); }); });
}

void Session::take_event(void* session, MbFrame::IEvent* event) {
    guarded("show an event", [&] {
        auto& self = *static_cast<Session*>(session);
        // The event owns the record.
        const auto& record = *static_cast<const ST_PB_EVENT*>(event->GetNativeEvent());
        self.figures_.sent(record);
        self.client_.on_event(*event, record);
    });
}

void Session::take_memory_check(void* session, MbFrame::IEvent* event) {
    guarded("show a memory check", [&] {
        auto& self = *static_cast<Session*>(session);
        self.figures_.memory_check();
        self.client_.on_memory_check(*static_cast<const ST_MEM_DETECT_INFO*>(event->GetNativeEvent()));
    });
}

// The plug-in ignores the result.
// The plug-in owns the buffer and frees it after the call.
int Session::take_answer(int code, uint32_t context, const char* buffer, uint32_t size) {
    guarded("show the answer to a trace", [&] {
        Session& self = *current;
        self.figures_.answer(code);
        self.client_.on_answer(code, context, buffer, size);
    });
    return 0;
}

// A callback that answered something other than 1 has written nothing that counts.
void Session::take_report(void* session, const char* module, int32_t result, const char* text) {
    guarded("read a report", [&] {
        auto& self = *static_cast<Session*>(session);
        // The result 1 means that the module has written its report. An empty text has no figures.
        if (result == 1 && *text != '\0') {
            const std::lock_guard lock(self.mutex_);
            self.reports_.add(text);
        }
        self.client_.on_report(module, result, text);
    });
}

// A result buffer that is out while the trace module is unloaded belongs to an event on its way through the bus, or to
// a KOV alert whose completion failed, which the plug-in keeps.
// True explains the buffer, and the stand-in does not report it as lost.
int32_t Session::explain_buffer(void* session, const char*) {
    const auto& self = *static_cast<const Session*>(session);
    return self.bus_.counts().sending > 0 || self.figures_.totals().sum(&KindFigures::not_completed) > 0;
}

// --- what goes in ---

// Counted after the bus has taken it: the plug-in may be quicker, so that sums are exact only at rest.
template <class Act>
Session::Published Session::publish_when_room(uint32_t event_id, Act publish) {
    int32_t answer;
    // A full bus is no failure. The client decides how long to wait.
    while ((answer = publish()) == LUMMB_FULL)
        if (!client_.pause_publishing()) return Published::given_up;
    if (answer == LUMMB_OK) {
        figures_.published(event_id);
        return Published::accepted;
    }
    if (answer != LUMMB_NOT_SUBSCRIBED) throw Failure("the bus answered {} to event {}", answer, event_id);
    figures_.not_subscribed(event_id);
    return Published::not_subscribed;
}

Session::Published Session::publish(uint32_t event_id, const char* data, uint64_t size) {
    // The client hears of it before the bus has it, so that a record has the act before what
    // follows from it.
    const Told told(client_, {.kind = Input::publish, .number = event_id, .data = data, .size = size});
    return publish_when_room(event_id, [&] { return bus_.publish(event_id, data, size); });
}

Session::Published Session::publish(const ST_DNS_NATIVE& record, const char* query_name) {
    const Told told(client_,
                    {.kind = Input::dns, .number = event_id::ioc, .record = &record, .query_name = query_name});
    return publish_when_room(event_id::ioc, [&] { return bus_.publish_dns(&record, query_name); });
}

int Session::file_trace(const char* path, const char* file_key, int kind, uint32_t context) {
    const Told told(
        client_, {.kind = Input::file_trace, .number = context, .data = path, .file_key = file_key, .file_kind = kind});
    const int result = plugin_.file_trace(take_answer, path, file_key, kind, context);
    // Only an accepted trace is expected to be answered.
    if (result == 0) figures_.file_trace();
    return result;
}

int Session::process_trace(const char* data, uint32_t size, uint32_t context) {
    const Told told(client_, {.kind = Input::process_trace, .number = context, .data = data, .size = size});
    const int result = plugin_.process_trace(take_answer, data, size, context);
    if (result == 0) figures_.process_trace();
    return result;
}

int Session::configure(const char* data, uint32_t size) {
    const Told told(client_, {.kind = Input::configure, .data = data, .size = size});
    return plugin_.configuration_update(data, size);
}

// The count of deliveries is taken before the plug-in closes its gate, and at the end after it has opened it again.
// Several threads may hold a reset period open. The count begins with the first and ends with the
// last.
void Session::reset_begin() {
    const Told told(client_, {.kind = Input::reset_begin});
    {
        const std::lock_guard lock(mutex_);
        if (resets_open_++ == 0) delivered_at_reset_ = bus_.counts().delivered;
    }
    plugin_.begin_reset();
}

// What is delivered while any such bracket is open may have been released unhandled, and so may the event that is on
// its way at the end.
void Session::reset_end() {
    const Told told(client_, {.kind = Input::reset_end});
    plugin_.end_reset();
    const std::lock_guard lock(mutex_);
    // An end without a beginning counts nothing.
    if (resets_open_ == 0) return;
    --resets_open_;
    // One more: the event that the bus is just delivering is not in its count yet.
    if (resets_open_ == 0) delivered_in_resets_ += bus_.counts().delivered - delivered_at_reset_ + 1;
}

bool Session::reset_open() const {
    const std::lock_guard lock(mutex_);
    return resets_open_ > 0;
}

void Session::collect(uint32_t buffer_size) {
    if (!can_collect()) throw Failure("the agent has no libzelbpmgr.so that a host could ask for a report");
    const Told told(client_, {.kind = Input::collect, .number = buffer_size});
    // The manager asks on a thread of its own, and this call waits for it.
    manager_->collect(ZELBPMGR_OWN_THREAD, buffer_size, take_report, static_cast<void*>(this));
}

// --- waiting and counting ---

// None when nobody counts: no trace module is loaded, or it is not the stand-in, whose library may lie there all the
// same.
std::optional<zeltrc_counts> Session::trace_counts() const {
    zeltrc_counts counts{};
    if (!trace_ || !trace_->get_counts) return {};
    trace_->get_counts(&counts);
    // The stand-in counts its start. No start although a module is loaded means that another module
    // is loaded.
    if (trace_module_ && counts.calls[ZELTRC_INIT] == 0) return {};
    return counts;
}

// The log may tell late that an alert was put off, and the trace module does not learn which alerts are given up: an
// alert waits where both say so, if both can be asked.
uint64_t Session::open_traces() const {
    const std::optional<zeltrc_counts> counts = trace_counts();
    // Without the counts of the module the log is all there is.
    if (!counts) return figures_.totals().waiting_traces;
    const uint64_t put_off = reads_log_ ? figures_.put_off_traces() : counts->waiting;
    // The larger of the two is taken, since either side may be late.
    return std::max(figures_.pushed_traces(), counts->running + std::min(counts->waiting, put_off));
}

bool Session::wait_until_idle(bool traces, std::chrono::milliseconds quiet, const Pause& pause) const {
    for (;;) {
        const uint64_t open = traces ? open_traces() : 0;
        const lummb_counts bus = bus_.counts();
        // A quiet time is needed because an event may be between two places that are counted.
        if (open == 0 && at_rest(bus) && Figures::Clock::now() - figures_.last_sign() >= quiet) return true;
        if (!pause({open, bus.waiting + bus.sending})) return false;
    }
}

// Looks at the bus first: what it has delivered by then is in the figures that are read after it.
// Nothing is waited for by time here: every event has its end in the account, or is one of the
// discarded.
bool Session::wait_until_settled(const Left& discarded, const Pause& pause) const {
    for (;;) {
        const lummb_counts bus = bus_.counts();
        const uint64_t running = trace_counts().value_or(zeltrc_counts{}).running;
        if (at_rest(bus) && running == 0 && left_of(figures_.totals()) == discarded) return true;
        if (!pause({running, bus.waiting + bus.sending})) return false;
    }
}

void Session::drain() const {
    for (int step = 0; !at_rest(bus_.counts()); ++step) {
        if (step == kDrainSteps) throw Failure("the bus still holds events that were published or sent");
        std::this_thread::sleep_for(kDrainStep);
    }
}

// Each part is right in itself; together they are exact when nothing runs.
Account Session::account() const {
    // Parts are taken one after the other, each under its own lock.
    Account account;
    account.bus = bus_.counts();
    account.trace = trace_counts();
    account.trace_module = trace_module_;
    account.log = reads_log_;
    account.totals = figures_.totals();
    account.left = left_of(account.totals);
    const std::lock_guard lock(mutex_);
    account.reports = reports_;
    account.delivered_in_resets = delivered_in_resets_;
    return account;
}

}  // namespace zelhost
