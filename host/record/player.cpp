#include "host/record/player.h"

#include <fmt/format.h>

#include <algorithm>

#include "platform/zel_trc.h"
#include "standin/lummb/lummb_host.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;
using record::Question;
using record::Role;
using record::Step;

// How long a thread may take to come for its step. It does so at once unless the plug-in does something else.
constexpr auto kPatience = 10s;
// How long the host is alone after it has begun something, and how long it waits for the workers before. What has to
// happen in that time takes microseconds.
constexpr auto kHostFirst = 20ms;
constexpr auto kWorkersCome = 1s;

// By the numbers of record::Role and record::Question in record.proto. They are read when a
// departure is told.
constexpr const char* kRoles[] = {"host", "bus", "alarm worker", "trace worker", "another thread"};
constexpr const char* kQuestions[] = {"a mutex",
                                      "a sleep",
                                      "time()",
                                      "the monotonic clock",
                                      "the ticks",
                                      "a GUID",
                                      "the size of a file",
                                      "the start of the trace module",
                                      "the end of the trace module",
                                      "the completion of an alert",
                                      "a chain",
                                      "the expansion of a chain",
                                      "the chain of an on-demand trace",
                                      "the place of an event among others",
                                      "the functions of the trace module"};

// Numbers of a newer record have no words.
template <size_t count>
const char* words(const char* const (&table)[count], int number) {
    return number >= 0 && static_cast<size_t>(number) < count ? table[number] : "something unknown";
}

std::string words(Step::WhatCase what, Question question) {
    if (what == Step::kAnswer) return words(kQuestions, question);
    if (what == Step::kOutput) return "a message that came out";
    return what == Step::kInput ? "an act of the host" : "the delivery of an event";
}

std::string words(const Step& step) { return words(step.what_case(), step.answer().question()); }

// Nanoseconds in a unit of the clock; 0 for what is no clock.
int64_t unit_of(Question question) {
    switch (question) {
        // The record keeps what the clock's own function gives: whole seconds, milliseconds or
        // nanoseconds.
        case record::SECONDS: return 1'000'000'000;
        case record::TICKS: return 1'000'000;
        case record::MONOTONIC: return 1;
        default: return 0;
    }
}

// Done in a replay as well: a lock is held, and the trace module counts its starts.
bool is_done_for_real(Question question) {
    return question == record::LOCK || question == record::SEND || question == record::TRACE_INIT ||
           question == record::TRACE_UNINIT;
}

Outside::Answer answer_of(const record::Answer& answer) {
    return {answer.number(), answer.has_data() ? std::optional(answer.data()) : std::nullopt};
}

}  // namespace

Player::Player(RecordReader& reader, double speed, std::filesystem::path empty_file, OnOutput on_output)
    : reader_(reader), speed_(speed), empty_file_(std::move(empty_file)), on_output_(std::move(on_output)) {
    // The first step is read at once. So the front is known before any thread asks.
    advance();
}

// --- in turn ---

// Lines of the log are nobody's step.
void Player::advance() {
    front_.reset();
    for (Step step; reader_.next(step);) {
        if (step.has_line()) continue;
        // What came out is told as soon as it is reached. The comparison then has it before the
        // replay gives out its own.
        if (step.has_output()) on_output_(step.output(), reader_.at_us());
        front_at_us_ = reader_.at_us();
        front_ = std::move(step);
        return;
    }
}

Player::Clock::time_point Player::due() const {
    // As fast as it goes: every step is due already.
    if (speed_ == 0) return began_;
    const std::chrono::duration<double, std::micro> played(static_cast<double>(front_at_us_) / speed_);
    return began_ + std::chrono::duration_cast<Clock::duration>(played);
}

bool Player::is_wanted(const Want& want) const {
    // Answers to different questions are different steps. All other kinds have one form each.
    return front_->what_case() == want.what && (!front_->has_answer() || front_->answer().question() == want.question);
}

// The flags of the plug-in that no mutex guards are set by what the host calls: limits, the reset period, the trace
// module that is bound, and, behind the first mutex of a stop, the workers' end.
bool Player::is_flag_set_next() const {
    if (stop_ == Stop::done) return false;  // no worker is left
    if (front_->has_answer()) {
        const Question question = front_->answer().question();
        return question == record::TRACE_FOUND || question == record::TRACE_UNINIT ||
               (stop_ == Stop::begun && question == record::LOCK);
    }
    return front_->has_input() && (front_->input().has_call() || front_->input().has_configure());
}

// A worker that has taken its last step before the flag must have looked at the flag. It has when it waits for its
// next.
void Player::let_workers_come(std::unique_lock<std::mutex>& lock) {
    // The time is limited, because a worker may sit in a call that ends only after the host's act.
    changed_.wait_until(lock, Clock::now() + kWorkersCome, [this] {
        return !delivering_ && std::ranges::all_of(waiting_, [](const auto& role) {
            return role.second > 0 || (role.first != record::ALARM && role.first != record::TRACE);
        });
    });
}

// Waits until a step was taken. A thread that does not come for its step ends the order.
void Player::wait_for_others(std::unique_lock<std::mutex>& lock) {
    // Whoever reads what comes out may take any time.
    // The reader may be a pipe whose end nobody reads for a while. That is no departure.
    if (in_turn_ && front_->has_output()) return changed_.wait(lock);
    // The patience begins when the step was due or when the last one was taken, whichever is later.
    changed_.wait_until(lock, std::max(last_taken_, due()) + kPatience);
    if (front_ && departure_.empty() && Clock::now() >= std::max(last_taken_, due()) + kPatience)
        depart(fmt::format("the {} does not come for {}", words(kRoles, front_->role()), words(*front_)));
}

// Waits for what must come before this thread's step can be taken; false when it need not wait.
bool Player::wait(const Want& want, std::unique_lock<std::mutex>& lock) {
    // Another thread is first, or one is just acting.
    if (front_->role() != want.role || in_turn_) {
        wait_for_others(lock);
        return true;
    }
    if (!is_wanted(want)) {
        depart(fmt::format("the {} comes for {}, and the record has {}", words(kRoles, want.role),
                           words(want.what, want.question), words(*front_)));
        return true;
    }
    // The host is not held up by its own head start.
    const auto when = want.role == record::HOST ? due() : std::max(due(), host_first_until_);
    if (Clock::now() >= when) return false;
    changed_.wait_until(lock, when);
    return true;
}

int32_t Player::next_of_bus() {
    std::unique_lock lock(mutex_);
    ++waiting_[record::BUS];
    changed_.notify_all();
    while (front_ && departure_.empty() && front_->role() != record::BUS) wait_for_others(lock);
    --waiting_[record::BUS];
    // Nobody orders the lists any more, and the bus takes whichever has an event.
    if (!front_ || !departure_.empty()) return LUMMB_EITHER;
    return front_->has_delivery() ? LUMMB_INCOMING : LUMMB_SENT;
}

std::optional<Step> Player::take(const Want& want, const Real& act) {
    std::unique_lock lock(mutex_);
    // The host has come back, so what it had begun is done. Others need not wait for it any longer.
    if (want.role == record::HOST) host_first_until_ = {};
    ++waiting_[want.role];
    changed_.notify_all();
    while (front_ && departure_.empty() && wait(want, lock)) {
    }
    const bool host = want.role == record::HOST;
    if (front_ && departure_.empty() && host && is_flag_set_next()) let_workers_come(lock);
    // The act runs without the lock: taking a mutex of the plug-in may block until another thread
    // has had its step.
    if (act && front_ && departure_.empty()) {
        in_turn_ = true;
        lock.unlock();
        act();
        lock.lock();
        in_turn_ = false;
    }
    --waiting_[want.role];
    // A departure may have come while this thread acted.
    if (!front_ || !departure_.empty()) return {};
    Step step = std::move(*front_);
    if (step.has_delivery()) delivering_ = true;
    // Any act of the host other than a stop ends the state of a stop.
    if (step.has_input())
        stop_ = step.input().has_call() && step.input().call() == record::STOP ? Stop::begun : Stop::no;
    if (host && stop_ == Stop::begun && step.has_answer() && step.answer().question() == record::LOCK)
        stop_ = Stop::done;
    last_taken_ = Clock::now();
    // The others give the host a moment, so that what it does next is seen by them as it was then.
    if (host) host_first_until_ = last_taken_ + kHostFirst;
    advance();
    changed_.notify_all();
    return step;
}

Outside::Answer Player::ask(Question question, const Real& real) {
    const Role role = role_of_this_thread();
    // What has an order is done in its turn: otherwise a thread whose turn comes later could be the first.
    // The answer of the outside itself, for questions that are done for real.
    std::optional<Answer> done;
    const Real act = [&done, &real] { return *(done = real()); };
    const std::optional<Step> step = take({role, What::kAnswer, question}, is_done_for_real(question) ? act : Real{});
    if (!step) {
        // The turn was lost while the act was done. Its answer counts, since it must not be done
        // twice.
        if (done) return *done;
        // Nothing has been done yet. These questions need no answer from the record.
        if (is_done_for_real(question) || question == record::SLEEP) return real();
        const std::lock_guard lock(mutex_);
        return late_answer(role, question, real);
    }
    Answer answer = answer_of(step->answer());
    if (unit_of(question) != 0) {
        const std::lock_guard lock(mutex_);
        // If the plug-in departs later, the clock goes on from here.
        clocks_[question] = {answer.number, Clock::now()};
    }
    return answer;
}

void Player::delivery() { take({record::BUS, What::kDelivery}); }

void Player::delivered() {
    const std::lock_guard lock(mutex_);
    delivering_ = false;
    changed_.notify_all();
}

void Player::send(const std::function<void()>& enqueue) {
    // Queueing the event is the act, so that events stand in the bus in the order of the record.
    ask(record::SEND, [&enqueue] {
        enqueue();
        return Answer{};
    });
}

void Player::output(const std::function<void(const record::Output* then)>& show) {
    bool shown = false;
    // While it is this thread's turn nobody else looks at the front.
    take({role_of_this_thread(), What::kOutput}, [&] {
        show(&front_->output());
        shown = true;
        return Answer{};
    });
    // Nobody waits for turns. The message is shown at once, without a counterpart.
    if (!shown) show(nullptr);
}

std::optional<record::Input> Player::next_input() {
    if (std::optional<Step> step = take({record::HOST, What::kInput})) return std::move(*step->mutable_input());
    std::unique_lock lock(mutex_);
    return late_input(lock);
}

std::optional<std::string> Player::place_of_file(int64_t size) {
    // The size is told by lseek. A file that could not be opened then must fail to open now, too.
    // Nothing lies below a file.
    return (size == -1 ? empty_file_ / "none" : empty_file_).string();
}

// --- after a departure, and after the end ---

void Player::depart(const std::string& how) {
    departure_ = fmt::format("at {:.3f} s {}", static_cast<double>(front_at_us_) / 1e6, how);
    departed_ = Clock::now();
    departed_at_us_ = front_at_us_;
    // The front and all steps behind it are kept by role. Log lines were skipped before.
    keep(std::move(*front_));
    for (advance(); front_; advance()) keep(std::move(*front_));
    changed_.notify_all();
}

void Player::keep(Step step) {
    // Deliveries and outputs have no answer that anybody could ask for later.
    if (step.has_input()) late_inputs_.emplace_back(std::move(*step.mutable_input()), front_at_us_);
    if (step.has_answer()) late_answers_[{step.role(), step.answer().question()}].push_back(answer_of(step.answer()));
}

// Without a departure this is the end: a worker may ask once more before it sees that it is to stop.
Outside::Answer Player::late_answer(Role role, Question question, const Real& real) {
    if (const int64_t unit = unit_of(question); unit != 0) {
        const auto found = clocks_.find(question);
        // A clock that was never asked has no value to run on from.
        if (found == clocks_.end()) return real();
        const auto& [shown, when] = found->second;
        return {shown + std::chrono::nanoseconds(Clock::now() - when).count() / unit};
    }
    auto& answers = late_answers_[{role, question}];
    if (!answers.empty()) {
        Answer answer = std::move(answers.front());
        answers.pop_front();
        return answer;
    }
    // The module is not asked: its results would be none of the record's.
    if (question >= record::TRACE_COMPLETION && question <= record::TRACE_DISPOSE) return {ZEL_TRC_DROPPED};
    return real();
}

std::optional<record::Input> Player::late_input(std::unique_lock<std::mutex>& lock) {
    if (late_inputs_.empty()) return {};
    auto [input, at_us] = std::move(late_inputs_.front());
    late_inputs_.pop_front();
    // At full speed the inputs come at the pace of the record. Without an order they would come all
    // at once.
    const std::chrono::duration<double, std::micro> since(static_cast<double>(at_us - departed_at_us_) /
                                                          (speed_ == 0 ? 1 : speed_));
    // The wait has no condition that could end it early. Its lock is free meanwhile.
    changed_.wait_until(lock, departed_ + std::chrono::duration_cast<Clock::duration>(since), [] { return false; });
    return input;
}

std::string Player::departure() const {
    const std::lock_guard lock(mutex_);
    return departure_;
}

}  // namespace zelhost
