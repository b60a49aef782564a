#include "host/commands/server_options.h"

#include <CLI/CLI.hpp>

#include "host/lib/failure.h"

namespace zelhost {

// The parser shows the text of the failure as its own.
std::string check_address(const std::string& text) try {
    parse_nats_address(text);
    return {};
} catch (const Failure& e) {
    return e.what();
}

// All of these are names of files. They are read when the connection is made.
void add_server_options(CLI::App& app, const std::string& prefix, NatsAccess& access) {
    const auto add = [&](const char* name, const char* help, std::string& file) {
        return app.add_option(prefix + name, file, help)->type_name("FILE");
    };
    add("creds", "Credentials for the server: a file made by the server's tools, or one line NAME:PASSWORD",
        access.creds);
    add("ca", "Certificates to check the server's certificate with; the connection then uses TLS", access.ca);
    CLI::Option* const cert = add("cert", "This client's certificate", access.cert);
    CLI::Option* const key = add("key", "The key of this client's certificate", access.key);
    cert->needs(key);
    key->needs(cert);
}

}  // namespace zelhost
