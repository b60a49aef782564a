// Alerts of a load: documents in which a few properties vary. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace zelhost {

// What a load varies in an alert.
// A value that is made for each alert. A member that is left out has a value with which the plug-in
// reports and traces the alert.
struct AlertForm {
    uint64_t number = 0;         // makes the GUID
    int type = 3;                // 2: with processes in its scenario, which are to be checked
    const char* level = "High";  // Verbose, Low, Medium, High, Critical, or another for none
    // The id of the container that the alert comes from. The plug-in does not trace alerts from a
    // container; the id "host" stands for none.
    const char* container = "host";
    std::string rule_id = {};  // of the first rule; empty: made from the number, so that no alert repeats another
    // The status of every rule. With "Trigger" on all of them the plug-in drops the alert.
    const char* status = "Enable";
    int rules = 1;
    int events = 1;  // of each rule
};
// The alert as a JSON document. The same form gives the same text.
std::string alert_text(const AlertForm& form);

}  // namespace zelhost
