// Events as the agent's modules would send them, and some as they should not be.
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "host/lib/session.h"

namespace zelhost {

using Random = std::mt19937;

// A number from 0 to limit - 1. The limit must not be 0.
inline uint32_t below(Random& random, uint32_t limit) { return std::uniform_int_distribution(0u, limit - 1)(random); }

// What the mixture and the storm vary in an alert.
struct AlertForm {
    uint64_t number = 0;         // makes the GUID
    int type = 3;                // 2: with processes in its scenario, which are to be checked
    const char* level = "High";  // Verbose, Low, Medium, High, Critical, or another for none
    const char* container = "host";
    std::string rule_id = {};  // of the first rule; empty: made from the number, so that no alert repeats another
    const char* status = "Enable";
    int rules = 1;
    int events = 1;  // of each rule
};
// The alert as a JSON document. The same form gives the same text.
std::string alert_text(const AlertForm& form);

// Publishes a mixture of everything that a plug-in may meet, good and bad. It borrows the session. One thread.
class Mixture {
public:
    // The number is the seed. Two mixtures with different numbers send no equal alerts, except those that are meant as
    // repeats. With `leaves_nothing` the kinds are left out of which the plug-in keeps something on purpose.
    Mixture(Session& session, uint32_t number, bool leaves_nothing)
        : session_(session), random_(number), next_(uint64_t{number} << 32), leaves_nothing_(leaves_nothing) {}

    // Publishes one event of a kind that is drawn by its share.
    void publish_one();

private:
    struct Kind;
    static const Kind kKinds[];

    void send(uint32_t id, const std::string& data);
    void send_alert(AlertForm form, uint32_t id);
    void fresh_alert();
    void repeated_alert();
    void container_alert();
    void scenario_alert();
    void busy_rule_alert();
    void trigger_alert();
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

    Session& session_;
    Random random_;
    uint64_t next_;
    const bool leaves_nothing_;
};

}  // namespace zelhost
