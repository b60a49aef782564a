#include "host/lib/stream_reader.h"

#include "host/lib/failure.h"
#include "host/lib/json_text.h"
#include "host/lib/subject.h"
#include "host/lib/visible.h"

namespace zelhost {
namespace {

// Milliseconds for the answer to a request.
constexpr int64_t kRequestMs = 5'000;

// Empty when the message has no such header.
std::string header(natsMsg* message, const char* name) {
    const char* value = nullptr;
    return natsMsgHeader_Get(message, name, &value) == NATS_OK ? value : "";
}

Nats<jsCtx> stream_context(natsConnection* connection) {
    jsCtx* context = nullptr;
    if (natsConnection_JetStream(&context, connection, nullptr) != NATS_OK)
        throw Failure("there is no memory for a connection");
    return Nats<jsCtx>(context);
}

}  // namespace

// An ordered reader starts anew by itself when it finds a gap.
StreamReader::StreamReader(const NatsOptions& server, const std::string& subject, uint64_t sequence)
    : connection_(server.connect()), stream_(stream_context(connection_.get())) {
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Ordered = true;
    options.Config.DeliverPolicy = js_DeliverByStartSequence;
    options.Config.OptStartSeq = sequence;
    const std::string all = subject + ".*.*";
    natsSubscription* subscription = nullptr;
    jsErrCode code = jsErrCode(0);
    const natsStatus status = js_SubscribeSync(&subscription, stream_.get(), all.c_str(), nullptr, &options, &code);
    if (status == NATS_NOT_FOUND || code == JSStreamNotFoundErr)
        throw Failure("no stream takes {}; --create-stream makes one", all);
    if (status != NATS_OK) throw Failure("cannot read {}: {}", all, nats_reason(status));
    messages_.reset(subscription);
    jsConsumerInfo* info = nullptr;
    if (natsSubscription_GetConsumerInfo(&info, subscription, nullptr, nullptr) != NATS_OK)
        throw Failure("the server does not tell how much there is to read of {}", all);
    // What was delivered while the reader was made belongs to the beginning, too.
    pending_ = info->NumPending + info->Delivered.Consumer;
    jsConsumerInfo_Destroy(info);
}

std::optional<StreamMessage> StreamReader::next(std::chrono::milliseconds time) {
    natsMsg* taken = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&taken, messages_.get(), time.count());
    const Nats<natsMsg> message(taken);
    if (status == NATS_TIMEOUT) return {};
    if (status != NATS_OK) throw Failure("the reading of the stream broke off: {}", natsStatus_GetText(status));
    jsMsgMetaData* data = nullptr;
    if (natsMsg_GetMetaData(&data, message.get()) != NATS_OK) throw Failure("a message of the stream has no number");
    const Nats<jsMsgMetaData> meta(data);
    return StreamMessage{.sequence = meta->Sequence.Stream,
                         .behind = meta->NumPending,
                         .subject = natsMsg_GetSubject(message.get()),
                         .id = header(message.get(), "Nats-Msg-Id"),
                         .source = header(message.get(), "Zel-Source"),
                         .payload = std::string(natsMsg_GetData(message.get()),
                                                static_cast<size_t>(natsMsg_GetDataLength(message.get())))};
}

void create_stream(const NatsOptions& server, const std::string& json) {
    const JsonText stream(json);
    // The name goes into a subject, so it must be one token.
    const std::string* const name = stream.text("name");
    if (name == nullptr || subject_token(*name) != *name)
        throw Failure("the stream has no \"name\" of letters and digits");
    const Nats<natsConnection> connection = server.connect();
    natsMsg* taken = nullptr;
    const std::string request = "$JS.API.STREAM.CREATE." + *name;
    const natsStatus status = natsConnection_Request(&taken, connection.get(), request.c_str(), json.data(),
                                                     static_cast<int>(json.size()), kRequestMs);
    const Nats<natsMsg> answer(taken);
    if (status == NATS_NO_RESPONDERS) throw Failure("cannot make the stream {}: the server keeps no streams", *name);
    if (status != NATS_OK) throw Failure("cannot make the stream {}: {}", *name, nats_reason(status));
    const JsonText text({natsMsg_GetData(answer.get()), static_cast<size_t>(natsMsg_GetDataLength(answer.get()))});
    const JsonText::Member* const error = text.find("error");
    if (error == nullptr) return;
    const JsonText details(error->raw);
    const std::string* const why = details.text("description");
    throw Failure("cannot make the stream {}: {}", *name, visible(why == nullptr ? error->raw : *why));
}

}  // namespace zelhost
