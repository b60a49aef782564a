#include "payload.h"

#include <cstring>
#include <variant>
#include <vector>

#include "platform/event_ids.h"

namespace {

// A block of exactly `size` bytes. Null for null, so that a record without data stays one.
std::unique_ptr<char[]> copy_bytes(const char* data, uint64_t size) {
    if (data == nullptr) return nullptr;
    auto copy = std::make_unique_for_overwrite<char[]>(size);
    if (size > 0) memcpy(copy.get(), data, size);
    return copy;
}

// Owns the bytes and the record that points to them.
class BufferPayload final : public Payload {
public:
    BufferPayload(uint32_t event_id, const char* data, uint64_t size) : bytes_(copy_bytes(data, size)) {
        if (event_id == event_id::ioa_alert)
            record_ = ST_JSON_BUFFER{bytes_.get(), size};
        else
            record_ = ST_COMMON_BUFFER{event_id, size, bytes_.get()};
    }
    void* native() override {
        return std::visit([](auto& record) -> void* { return &record; }, record_);
    }

private:
    std::unique_ptr<char[]> bytes_;
    std::variant<ST_JSON_BUFFER, ST_COMMON_BUFFER> record_;
};

// Owns the record, its texts and its variant; none of them points into what the host gave.
class DnsPayload final : public Payload {
public:
    DnsPayload(const ST_DNS_NATIVE& record, const char* query_name) : record_(record), query_name_(keep(query_name)) {
        keep_all(record_.pszText);
        if (record_.pVariant != nullptr) record_.pVariant = keep_variant();
    }
    // Valid as long as the event.
    void* native() override { return &record_; }
    bool is_dns() const override { return true; }
    const char* query_name() const override { return query_name_; }

private:
    // Each text lies in a block of its own, so that a checker sees where one ends.
    const char* keep(const char* text) {
        if (text == nullptr) return nullptr;
        return owned_.emplace_back(copy_bytes(text, strlen(text) + 1)).get();
    }
    template <size_t N>
    void keep_all(const char* (&texts)[N]) {
        for (const char*& text : texts) text = keep(text);
    }

    // Copies the variant itself; the caller then copies its texts.
    template <class V>
    V& copy_variant() {
        return variant_.emplace<V>(*static_cast<const V*>(record_.pVariant));
    }
    const void* keep_variant() {
        switch (record_.uKind) {
            case 1: {
                auto& copy = copy_variant<ST_DNS_VARIANT_1>();
                keep_all(copy.pszProcess);
                keep_all(copy.pszTail);
                return &copy;
            }
            case 2: {
                auto& copy = copy_variant<ST_DNS_VARIANT_2>();
                keep_all(copy.pszProcess);
                copy.pszDomain = keep(copy.pszDomain);
                copy.pszDnsResults = keep(copy.pszDnsResults);
                return &copy;
            }
            case 3: {
                auto& copy = copy_variant<ST_DNS_VARIANT_3>();
                keep_all(copy.pszTail);
                return &copy;
            }
            default:
                // No layout is known for this kind, so the pointer leads to a block of no bytes: a reader meets a
                // checker.
                return owned_.emplace_back(copy_bytes("", 0)).get();
        }
    }

    // Declared first, because making the other members puts copies of texts here.
    std::vector<std::unique_ptr<char[]>> owned_;
    ST_DNS_NATIVE record_;
    std::variant<std::monostate, ST_DNS_VARIANT_1, ST_DNS_VARIANT_2, ST_DNS_VARIANT_3> variant_;
    const char* query_name_;
};

}  // namespace

std::unique_ptr<Payload> make_buffer_payload(uint32_t event_id, const char* data, uint64_t size) {
    return std::make_unique<BufferPayload>(event_id, data, size);
}

std::unique_ptr<Payload> make_dns_payload(const ST_DNS_NATIVE& record, const char* query_name) {
    return std::make_unique<DnsPayload>(record, query_name);
}
