// Publishes what a plug-in gives out to a message server, and keeps it in a buffer on disk while the server is away.
#pragma once

#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/lib/nats_link.h"
#include "host/lib/nats_server.h"
#include "host/lib/sink_keeper.h"
#include "platform/native_payloads.h"

namespace zelhost {

// What the command line says of a sink. The room of the buffer is in MiB, the longest age of a
// message in hours. What goes beyond either is shed, the oldest first.
struct SinkOptions {
    std::string address;  // empty: no sink
    NatsAccess access;
    std::string buffer;        // folder; empty: one for the agent's id in the agent folder
    uint64_t buffer_mb = 256;  // most room in it
    uint64_t buffer_hours = 168;
};

// Whoever hands a message over never waits for network or disk: the message is copied, and a thread of the sink does
// the rest. The subject of a message is SUBJECT.KIND.AGENT, its id KIND.GUID.RUN.NUMBER, where RUN is a random word of
// this object.
class Sink {
public:
    // Opens the buffer and begins to connect. `root` is the agent folder. Throws Failure for a wrong address, for a
    // file that cannot be read and for a buffer that cannot be used; that no server is there is no failure.
    Sink(const SinkOptions& options, const std::filesystem::path& root);
    ~Sink();
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    // A message of the plug-in. Any thread. When the sink's thread is far behind, the message is shed.
    void hand_over(const ST_PB_EVENT& event);
    // Likewise, with a text in the place of a serialised message, and without a GUID.
    void hand_over(uint32_t kind, std::string_view text);

    // Waits for the server's answers as long as there is hope, some seconds at most; what has none by then stays in the
    // buffer. To be called once, after the last message.
    void close();

    // Any thread; exact after close.
    SinkAccount account() const;

private:
    // All messages of the plug-in come through here. `guid` may be empty.
    void hand_over(uint32_t kind, uint32_t source, std::string_view guid, std::string_view payload);
    std::shared_ptr<SinkMessage> copy(uint32_t kind, uint32_t source, std::string_view guid,
                                      std::string_view payload) const;
    // The body of the sink's thread.
    void work();
    // News of the link, on one of its threads. They are only put into the list.
    void tell(LinkNews news);
    static SinkKeeper::Now now();

    const NatsAddress address_;
    const std::string agent_;  // as a token
    const std::string run_;    // random
    const NatsOptions server_;
    SinkStore store_;

    mutable std::mutex mutex_;
    // Wakes the sink's thread.
    std::condition_variable wake_;
    // Under the mutex.
    std::vector<SharedMessage> messages_;
    uint64_t message_bytes_ = 0;
    // In the order in which the link has told them.
    std::vector<LinkNews> news_;
    bool urgent_news_ = false;
    // The number of the next message. It goes on from where the buffer of earlier runs ends.
    int64_t next_number_;
    uint64_t handed_over_ = 0, shed_full_ = 0;
    uint64_t taken_ = 0;  // by the sink's thread, and not yet in its account
    bool closing_ = false;
    SinkAccount account_;  // the keeper's part

    // The sink's thread alone, which makes them.
    std::optional<SinkKeeper> keeper_;
    // The link ends before the keeper, because its threads tell news as long as it lives.
    NatsLink link_;
    std::jthread thread_;
};

}  // namespace zelhost
