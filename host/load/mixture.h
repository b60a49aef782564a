// Events as the agent's modules would send them, and some as they should not be. One table has the kinds.
#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/load/alert_form.h"
#include "platform/native_payloads.h"

namespace zelhost {

using Random = std::mt19937;

// A number from 0 to limit - 1. The limit must not be 0.
inline uint32_t below(Random& random, uint32_t limit) { return std::uniform_int_distribution(0u, limit - 1)(random); }

// The shares of the kinds, in the order of their table.
using Mix = std::vector<uint32_t>;

// Takes the events that a mixture makes.
class EventSink {
public:
    virtual ~EventSink() = default;

    // Takes an event with a payload of bytes. A null pointer may come with any size, because a host
    // could do the same.
    // The data is valid during the call. `number` is that of the GUID under which the event is reported, if it is;
    // kNoNumber for an event whose document has no such GUID.
    virtual void take(uint32_t event_id, const char* data, uint64_t size, uint64_t number) = 0;
    // Takes a DNS hit. Record and name are valid during the call.
    virtual void take(const ST_DNS_NATIVE& record, const char* query_name) = 0;

    static constexpr uint64_t kNoNumber = UINT64_MAX;
};

// Makes events, each of a kind that is drawn by its share. It borrows the sink. One thread.
class Mixture {
public:
    // A row of the table: how one kind of event is called, how often it comes, and what makes it.
    struct Kind {
        const char* name;
        const char* words;  // what it is, for people
        uint32_t share;     // in the usual mix
        void (Mixture::*make)();
        bool stays = false;  // a node, a tree or a record of it may stay allocated
    };
    // All kinds, in the order in which a Mix has their shares. Valid for the life of the process.
    static std::span<const Kind> kinds();

    // One seed, number, mix and number of events give the same events in the same order. Mixtures with different
    // numbers make no equal alerts, except those that are meant as repeats. The numbers of a mixture's alerts begin at
    // `number` * 2^32. `events` is how many events each rule of an alert has; 0: as its kind says.
    Mixture(EventSink& sink, uint32_t seed, uint32_t number, const Mix& mix, int events = 0);

    // Draws a kind, makes one event of it, and gives it to the sink before it returns. What the
    // sink throws comes through.
    void make_one();

private:
    static const Kind kKinds[];

    // Every event with bytes goes out here. `number` is left out for events without a GUID of their
    // own.
    void send(uint32_t id, const std::string& data, uint64_t number = EventSink::kNoNumber);
    void send_alert(AlertForm form, uint32_t id);
    // One function for each row of the table, in its order.
    void fresh_alert();
    void huge_alert();
    void repeated_alert();
    void container_alert();
    void scenario_alert();
    void busy_rule_alert();
    void trigger_alert();
    void graded_alert();
    void memory_alert();
    void bad_document();
    void finding();
    void detection();
    void kov();
    void expand();
    void ignored();
    void garbage();
    void no_data();
    void fresh_hit();
    void repeated_hit();
    void hit(uint64_t number, uint32_t kind);

    EventSink& sink_;
    Random random_;
    // The number of the next alert. Each alert takes one, so that GUIDs do not repeat.
    uint64_t next_;
    const Mix mix_;
    const uint32_t shares_;  // their sum
    // Events of each rule; 0: as the kind says.
    const int events_;
};

// The shares that stand in the table itself.
Mix usual_mix();
// Only kinds of which the plug-in keeps nothing.
Mix mix_that_leaves_nothing();
// KIND=SHARE,...: only what is named. Throws Failure.
Mix parse_mix(std::string_view text);

}  // namespace zelhost
