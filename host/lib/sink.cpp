#include "host/lib/sink.h"

#include <fmt/format.h>

#include <cstdlib>
#include <new>
#include <random>
#include <utility>

#include "host/lib/failure.h"
#include "host/lib/subject.h"

namespace zelhost {
namespace {

using namespace std::chrono_literals;

// What may wait for the sink's thread: that thread waits for the disk at times.
// In bytes. A burst has room in it; when the disk is slow for long, messages are shed.
constexpr uint64_t kMostWaitingBytes = 64 << 20;
// So many acknowledgements wake the sink's thread. Fewer wait for its next look.
constexpr size_t kManyNews = 100;
// How often the thread looks at the time without being woken.
constexpr auto kTick = 200ms;
// How long the end of a run waits for answers.
constexpr auto kCloseWait = 5s;
constexpr size_t kLongestAgent = 512;

// The id that the plug-in writes into its messages.
std::string agent_token() {
    const char* const id = getenv("agentid");
    std::string token = subject_token(id == nullptr ? "0" : id);
    if (token.size() > kLongestAgent) throw Failure("the agent id in the environment is too long for a subject");
    return token;
}

// Two runs of one agent never have the same word, so their messages never have the same id.
std::string random_word() {
    std::random_device random;
    return fmt::format("{:08x}{:08x}", random(), random());
}

// Agents that share a folder do not share a buffer.
std::filesystem::path buffer_folder(const SinkOptions& options, const std::filesystem::path& root,
                                    const std::string& agent) {
    return options.buffer.empty() ? root / "sink" / agent : std::filesystem::path(options.buffer);
}

}  // namespace

Sink::Sink(const SinkOptions& options, const std::filesystem::path& root)
    // Members are made in this order: whatever can fail by a wrong option comes before the threads.
    : address_(parse_nats_address(options.address)),
      agent_(agent_token()),
      run_(random_word()),
      server_(address_, options.access, "zelhost run " + agent_),
      store_(buffer_folder(options, root, agent_), options.buffer_mb << 20),
      next_number_(store_.next_number()),
      link_(server_, address_.subject, [this](LinkNews news) { tell(std::move(news)); }) {
    // The keeper is made last, since it needs both the store and the link.
    keeper_.emplace(store_, link_, std::chrono::hours(options.buffer_hours));
    account_ = keeper_->account(now());
    thread_ = std::jthread([this] { work(); });
}

Sink::~Sink() { close(); }

SinkKeeper::Now Sink::now() {
    const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
    return {std::chrono::steady_clock::now(),
            std::chrono::duration_cast<std::chrono::milliseconds>(since_1970).count()};
}

void Sink::hand_over(const ST_PB_EVENT& event) {
    // A null pointer is an empty message.
    const std::string_view payload = event.pData == nullptr ? "" : std::string_view(event.pData, event.uSize);
    hand_over(event.uEventId, event.uSourceEventId, event.pszGuid == nullptr ? "" : event.pszGuid, payload);
}

void Sink::hand_over(uint32_t kind, std::string_view text) { hand_over(kind, 0, "", text); }

// A GUID comes from a document and may hold any bytes. The number is added to the id later. Null without memory.
std::shared_ptr<SinkMessage> Sink::copy(uint32_t kind, uint32_t source, std::string_view guid,
                                        // Everything that takes long is done here, before the lock.
                                        std::string_view payload) const try {
    return std::make_shared<SinkMessage>(SinkMessage{.time_ms = now().time_ms,
                                                     .kind = kind,
                                                     .source = source,
                                                     .agent = agent_,
                                                     .id = fmt::format("{}.{}.{}.", kind, subject_token(guid), run_),
                                                     .payload = std::string(payload)});
} catch (const std::bad_alloc&) {
    return nullptr;
}

// The thread is woken at the first message alone: it takes all that is there.
void Sink::hand_over(uint32_t kind, uint32_t source, std::string_view guid, std::string_view payload) {
    std::shared_ptr<SinkMessage> message = copy(kind, source, guid, payload);
    const std::lock_guard lock(mutex_);
    // The message counts as shed until it has a place. So the account is right at every moment.
    ++handed_over_;
    ++shed_full_;  // until it is on its way
    if (message == nullptr || closing_ || message_bytes_ + payload.size() > kMostWaitingBytes) return;
    // The number is given under the lock, so that numbers have the order of the list.
    message->number = next_number_++;
    message->id += std::to_string(message->number);
    messages_.push_back(std::move(message));
    message_bytes_ += payload.size();
    --shed_full_;
    if (messages_.size() == 1) wake_.notify_one();
}

// Nobody waits for a single acknowledgement, and to wake a thread costs more than all else about it. Many of them make
// room for other messages.
void Sink::tell(LinkNews news) {
    const std::lock_guard lock(mutex_);
    urgent_news_ = urgent_news_ || closing_ || news.kind != LinkNews::Kind::acknowledged || news_.size() >= kManyNews;
    news_.push_back(std::move(news));
    if (urgent_news_) wake_.notify_one();
}

void Sink::work() {
    bool closing = false;
    // By the machine's steady clock; set when the end begins.
    std::chrono::steady_clock::time_point deadline{};
    for (;;) {
        std::vector<SharedMessage> messages;
        std::vector<LinkNews> news;
        {
            std::unique_lock lock(mutex_);
            wake_.wait_for(lock, kTick, [&] { return !messages_.empty() || urgent_news_ || closing_ != closing; });
            // Both lists are taken at once, and the lock is free while the disk is waited for.
            messages.swap(messages_);
            news.swap(news_);
            message_bytes_ = 0;
            urgent_news_ = false;
            // What was taken is in neither list nor account until the account is made below.
            taken_ = messages.size();
            if (!std::exchange(closing, closing_) && closing) deadline = now().steady + kCloseWait;
        }
        const SinkKeeper::Now time = now();
        // News come first: they make room for new messages.
        for (const LinkNews& each : news) keeper_->hear(each, time);
        keeper_->take(messages, time);
        keeper_->tick(time);
        // The end waits only as long as answers can still come.
        const bool over = closing && (keeper_->is_empty() || !keeper_->has_hope(time) || time.steady >= deadline);
        if (over) keeper_->end();
        const SinkAccount account = keeper_->account(time);
        const std::lock_guard lock(mutex_);
        account_ = account;
        taken_ = 0;
        if (over) return;
    }
}

void Sink::close() {
    {
        // The thread sees it at its next look, at once if it waits.
        const std::lock_guard lock(mutex_);
        closing_ = true;
        wake_.notify_one();
    }
    if (thread_.joinable()) thread_.join();
}

SinkAccount Sink::account() const {
    const std::lock_guard lock(mutex_);
    SinkAccount account = account_;
    account.handed_over = handed_over_;
    account.shed_full = shed_full_;
    // What this thread of the run has handed over and the sink's thread has not accounted for yet.
    account.in_memory += messages_.size() + taken_;
    return account;
}

}  // namespace zelhost
