// The account as programs read it.
#pragma once

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <optional>
#include <string>

#include "host/lib/account.h"
#include "host/lib/sink_account.h"

namespace zelhost {

// How a run ended.
// Filled by the command, which alone knows its input and its output.
struct RunEnd {
    std::string result;  // in words, as the summary for people has it
    double seconds = 0;
    uint64_t lines = 0, skipped = 0, shown = 0;
    std::string log_place;
    std::optional<SinkAccount> sink{};
};

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

// The members "events", "given_out", "traces" and "statistics" of an object that is open. What is null is as below.
void write_account(JsonWriter& out, const Account& account, bool collected);

// One object on one line, with its end. What only the log tells is null where the log is not read, and the plug-in's
// own statistics are null where nobody collects them. What became of the messages of a sink stands there only if the
// run had one.
std::string account_json(const Account& account, const RunEnd& run, bool collected);

}  // namespace zelhost
