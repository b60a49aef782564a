// Where a message server is, how a program makes itself known to it, and a connection to it.
#pragma once

#include <nats/nats.h>

#include <memory>
#include <string>
#include <vector>

namespace zelhost {

// nats://HOST:PORT/SUBJECT or tls://..., with several HOST:PORT, separated by commas, for the servers of a cluster.
struct NatsAddress {
    std::vector<std::string> servers;  // as URLs, without the subject
    std::string subject;
    bool tls = false;

    // The servers as one text for people.
    std::string place() const;
};

// Throws Failure when the text has another form, wildcards in the subject, or a password, which other users of the
// machine could read in the list of processes.
NatsAddress parse_nats_address(const std::string& text);

// Files; an empty name means that there is none.
struct NatsAccess {
    std::string creds;      // a credentials file of the server's tools, or one line NAME:PASSWORD
    std::string ca;         // certificates that sign the server's one; asks for TLS
    std::string cert, key;  // of this client
};

// Ends what the library has made. The pointers below own their objects by it.
struct NatsClose {
    void operator()(natsOptions* options) const { natsOptions_Destroy(options); }
    void operator()(natsConnection* connection) const { natsConnection_Destroy(connection); }
    void operator()(natsSubscription* subscription) const { natsSubscription_Destroy(subscription); }
    void operator()(natsMsg* message) const { natsMsg_Destroy(message); }
    void operator()(jsCtx* context) const { jsCtx_Destroy(context); }
    void operator()(jsMsgMetaData* data) const { jsMsgMetaData_Destroy(data); }
    void operator()(jsConsumerInfo* info) const { jsConsumerInfo_Destroy(info); }
};
template <class Handle>
using Nats = std::unique_ptr<Handle, NatsClose>;

// What a connection is made with. It is made once and serves every connection after a break. Throws Failure when a file
// cannot be read.
// Does not change any more once it is made. Any thread may connect.
class NatsOptions {
public:
    NatsOptions(const NatsAddress& address, const NatsAccess& access, const std::string& name);

    // Blocks until the connection stands, 2 seconds for each server at most. It does not come back by itself after a
    // break: who owns it makes a new one. Throws Failure with the reason.
    Nats<natsConnection> connect() const;

private:
    void set_access(const NatsAddress& address, const NatsAccess& access);

    // The servers, for messages.
    const std::string place_;
    Nats<natsOptions> options_;
};

// The reason of a failed call, as the library tells it on the thread that made the call.
std::string nats_reason(natsStatus status);

}  // namespace zelhost
