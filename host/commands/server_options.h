// The options with which a command makes itself known to a message server.
#pragma once

#include <string>

#include "host/lib/nats_server.h"

namespace CLI {
class App;
}

namespace zelhost {

// What is wrong with an address, in words; empty when nothing is. For CLI::Option::check.
std::string check_address(const std::string& text);

// Each name begins with `prefix`.
// `access` must live as long as the parser.
void add_server_options(CLI::App& app, const std::string& prefix, NatsAccess& access);

}  // namespace zelhost
