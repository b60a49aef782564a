// Gives the plug-in the answers of a record, and the host what it did, in the order of the record over all threads: a
// thread that asks waits until the steps before its own were taken. So each worker meets the same queues, the same
// clocks and the same results, and gives out the same bytes.
//
// A plug-in that does something else than the one that was recorded departs from the record: it asks for something
// else, or a thread does not come. From there on nobody waits. Clocks run on from where they stood, results and GUIDs
// come in the order in which their thread got them, and what the host did comes at its times.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "host/record/outside.h"
#include "host/record/record_file.h"

namespace zelhost {

// One object plays one record. Threads of the plug-in, the bus and the host call it at the same
// time. It borrows the reader, which nobody else may use meanwhile.
class Player final : public Outside {
public:
    // Sees what the record has of what was given out, with its time; it runs under the player's lock.
    using OnOutput = std::function<void(const record::Output& output, int64_t at_us)>;

    // Borrows the reader. Plays so many times as fast as the session went; 0: as fast as it goes. `empty_file` is a
    // file without content that stands for every file of a size.
    Player(RecordReader& reader, double speed, std::filesystem::path empty_file, OnOutput on_output);

    // What the host did next, at its time and in its turn; nothing at the end. The host's thread.
    std::optional<record::Input> next_input();
    // The bus's thread: whether it gave an event to the plug-in next, or one of the plug-in's to its readers. A code of
    // lummb_host.h.
    int32_t next_of_bus();
    // The bus's thread, before the plug-in gets an event, and after it has had it.
    void delivery();
    void delivered();
    // The thread that sends an event.
    void send(const std::function<void()>& enqueue);
    // The thread on which something came out: shows it in its turn. `show` gets what the record has there; null when
    // nobody waits for turns any more.
    void output(const std::function<void(const record::Output* then)>& show);
    // Of Outside: the plug-in's threads.
    Answer ask(record::Question question, const Real& real) override;
    std::optional<std::string> place_of_file(int64_t size) override;

    // Where the plug-in has departed from the record, in words; empty when it has not. Any thread.
    std::string departure() const;

private:
    using Clock = std::chrono::steady_clock;
    using What = record::Step::WhatCase;

    // What a thread comes for.
    // A thread tells by this what it is about to do. The step of the record must say the same, or
    // the plug-in departs.
    struct Want {
        record::Role role;
        What what;
        record::Question question{};  // of an answer
    };

    // Waits for the turn of this thread, does `act` in it, and takes the step; nothing when nobody waits any more.
    // Role, kind of step and question are compared with the front. `act` runs without the lock and
    // may take as long as it likes.
    std::optional<record::Step> take(const Want& want, const Real& act = {});
    // All of the following are called under the lock.
    // Whether the front is what the thread has come for.
    bool is_wanted(const Want& want) const;
    // Waits once for whatever is in the way. True means that the caller looks again.
    bool wait(const Want& want, std::unique_lock<std::mutex>& lock);
    // Makes the next step of the record the front.
    void advance();
    // Whether the step at the front sets something that the workers look at without a lock.
    bool is_flag_set_next() const;
    void let_workers_come(std::unique_lock<std::mutex>& lock);
    void wait_for_others(std::unique_lock<std::mutex>& lock);
    // Ends the order for good, and keeps the rest of the record for answers out of turn.
    void depart(const std::string& how);
    void keep(record::Step step);
    // Answers without an order. Clocks run on, and each thread gets its own answers one after the
    // other.
    Answer late_answer(record::Role role, record::Question question, const Real& real);
    std::optional<record::Input> late_input(std::unique_lock<std::mutex>& lock);
    // When the front may be taken, by the speed of the replay.
    Clock::time_point due() const;

    RecordReader& reader_;
    const double speed_;
    const std::filesystem::path empty_file_;
    // Called with the lock held, so it must not call the player.
    const OnOutput on_output_;
    // Steps are timed from here.
    const Clock::time_point began_ = Clock::now();

    mutable std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    std::optional<record::Step> front_;  // the next step that a thread has to take; none at the end
    // When the front happened, in microseconds since the record began.
    int64_t front_at_us_ = 0;
    bool in_turn_ = false;  // a thread acts; the front is its step
    // What the host has begun, others wait for until it asks again: nothing tells when the plug-in has set a flag of
    // its own. Not for long, since the host may be waiting for them.
    Clock::time_point host_first_until_{};
    enum class Stop { no, begun, done };
    Stop stop_ = Stop::no;                   // of the workers: `done` when they have been told
    bool delivering_ = false;                // the plug-in has an event
    std::map<record::Role, int> waiting_;    // threads that wait for a turn, of each role that has come
    Clock::time_point last_taken_ = began_;  // when the last step was taken
    // The last answers, from which clocks run on.
    std::map<record::Question, std::pair<int64_t, Clock::time_point>> clocks_;

    // After a departure: the rest of the record.
    std::string departure_;
    std::map<std::pair<record::Role, record::Question>, std::deque<Answer>> late_answers_;
    std::deque<std::pair<record::Input, int64_t>> late_inputs_;
    // When the departure came, by the clock of this process and by the record.
    Clock::time_point departed_;
    int64_t departed_at_us_ = 0;
};

}  // namespace zelhost
