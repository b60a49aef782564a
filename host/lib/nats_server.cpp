#include "host/lib/nats_server.h"

#include <fmt/ranges.h>

#include <algorithm>
#include <mutex>

#include "host/lib/console.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"
#include "host/lib/subject.h"
#include "host/lib/visible.h"

namespace zelhost {
namespace {

// Milliseconds; for one server of the address.
constexpr int64_t kConnectMs = 2'000;
constexpr int64_t kWriteMs = 5'000;  // a server that takes nothing for so long is given up
constexpr int64_t kPingMs = 10'000;  // a server that is gone without a word is noticed after two of these
constexpr int kPings = 2;
// A file of credentials has a few hundred bytes. Another file was named by mistake.
constexpr size_t kMostCredentials = size_t{64} * 1024;
constexpr size_t kLongestSubject = 200;

// `what` and `file` are for the message.
void check(natsStatus status, const char* what, const std::string& file) {
    if (status != NATS_OK) throw Failure("cannot use {} {}: {}", what, file, nats_reason(status));
}

// What the server objects to without a reply, such as a subject that this user may not publish to. Each text is said
// once; the library would write to standard error by itself.
void say_objection(natsConnection* connection, natsSubscription*, natsStatus, void*) {
    static std::mutex mutex;
    static std::string said;
    const char* error = nullptr;
    if (natsConnection_GetLastError(connection, &error) == NATS_OK || error == nullptr) return;
    // Threads of the library call this, perhaps at the same time.
    const std::lock_guard lock(mutex);
    if (said == error) return;
    said = error;
    console::say("the message server objects: {}", visible(error));
}

// The tools of the server write a token and its key into one file. Without such tools a name and a password do.
void set_credentials(natsOptions* options, const std::string& file) {
    std::string text = read_file(file, kMostCredentials);
    if (text.find("BEGIN NATS USER JWT") != std::string::npos)
        return check(natsOptions_SetUserCredentialsFromFiles(options, file.c_str(), nullptr), "the credentials", file);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    // A password may hold a colon, a name may not.
    const size_t colon = text.find(':');
    if (colon == std::string::npos || text.find('\n') != std::string::npos)
        throw Failure("the credentials {} are neither a file of the server's tools nor one line NAME:PASSWORD", file);
    check(natsOptions_SetUserInfo(options, text.substr(0, colon).c_str(), text.substr(colon + 1).c_str()),
          "the credentials", file);
}

}  // namespace

// The library puts its own source line before the text, in brackets.
std::string nats_reason(natsStatus status) {
    if (status == NATS_NO_SERVER) return "no server answers";
    natsStatus last = NATS_OK;
    const char* const error = nats_GetLastError(&last);
    // The library keeps the text of the last failure of each thread. It may be of another call.
    std::string_view text = last == status && error != nullptr ? error : "";
    if (const size_t end = text.find("): "); text.starts_with('(') && end != std::string_view::npos)
        text.remove_prefix(end + 3);
    return visible(text.empty() ? natsStatus_GetText(status) : text);
}

std::string NatsAddress::place() const { return fmt::format("{}", fmt::join(servers, ",")); }

NatsAddress parse_nats_address(const std::string& text) {
    const auto fail = [&](const char* why) {
        throw Failure("{} is no address of a message server: {}; it is nats://HOST:PORT/SUBJECT, or tls://", text, why);
    };
    NatsAddress address;
    address.tls = text.starts_with("tls://");
    if (!address.tls && !text.starts_with("nats://")) fail("it begins with neither nats:// nor tls://");
    // All servers share the scheme, so it stands once.
    const size_t begin = text.find("//") + 2;
    const size_t slash = std::min(text.find('/', begin), text.size());
    if (text.find('@') < slash) fail("a name or a password does not belong there, a file of credentials holds it");
    for (size_t at = begin; at <= slash;) {
        const size_t comma = std::min(text.find(',', at), slash);
        const std::string server = text.substr(at, comma - at);
        if (server.empty() || server.find_first_of(" \t?#") != std::string::npos) fail("a host is missing");
        address.servers.push_back(text.substr(0, begin) + server);
        at = comma + 1;
    }
    if (slash + 1 < text.size()) address.subject = text.substr(slash + 1);
    if (address.subject.size() > kLongestSubject) fail("the subject has more than 200 characters");
    if (!is_subject(address.subject)) fail("the subject must be printable words with dots between them");
    return address;
}

NatsOptions::NatsOptions(const NatsAddress& address, const NatsAccess& access, const std::string& name)
    : place_(address.place()) {
    natsOptions* options = nullptr;
    if (natsOptions_Create(&options) != NATS_OK) throw Failure("there is no memory for a connection");
    options_.reset(options);
    std::vector<const char*> servers;
    // The library copies the texts.
    for (const std::string& server : address.servers) servers.push_back(server.c_str());
    check(natsOptions_SetServers(options, servers.data(), static_cast<int>(servers.size())), "the address", place_);
    natsOptions_SetName(options, name.c_str());
    natsOptions_SetTimeout(options, kConnectMs);
    natsOptions_SetWriteDeadline(options, kWriteMs);
    natsOptions_SetPingInterval(options, kPingMs);
    natsOptions_SetMaxPingsOut(options, kPings);
    // The library would keep a buffer of its own over a break, and nobody could tell what became of its messages.
    natsOptions_SetAllowReconnect(options, false);
    natsOptions_SetErrorHandler(options, say_objection, nullptr);
    set_access(address, access);
}

void NatsOptions::set_access(const NatsAddress& address, const NatsAccess& access) {
    natsOptions* const options = options_.get();
    // A file for TLS asks for TLS, whatever the address says.
    const bool tls = address.tls || !access.ca.empty() || !access.cert.empty();
    if (tls) check(natsOptions_SetSecure(options, true), "TLS with", place_);
    if (!access.ca.empty())
        check(natsOptions_LoadCATrustedCertificates(options, access.ca.c_str()), "the certificates", access.ca);
    if (!access.cert.empty())
        check(natsOptions_LoadCertificatesChain(options, access.cert.c_str(), access.key.c_str()), "the certificate",
              access.cert + " with the key " + access.key);
    if (!access.creds.empty()) set_credentials(options, access.creds);
}

Nats<natsConnection> NatsOptions::connect() const {
    natsConnection* connection = nullptr;
    const natsStatus status = natsConnection_Connect(&connection, options_.get());
    if (status != NATS_OK) throw Failure("cannot connect to {}: {}", place_, nats_reason(status));
    return Nats<natsConnection>(connection);
}

}  // namespace zelhost
