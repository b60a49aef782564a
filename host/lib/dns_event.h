// The native record of event 1281 from its JSON form.
#pragma once

#include <deque>
#include <string_view>

#include "host/lib/json_text.h"
#include "platform/native_payloads.h"

namespace zelhost {

// Keys, each of which may be left out:
//   kind            1, 2 (as when absent) or 3: the variant record; any other number has none
//   variant         false: a record without its variant record
//   time            the alert's time, which is the last number of the head
//   head, uhead     13 and 3 numbers
//   texts           13 texts or nulls
//   query_name      text or null; the domain when absent
//   kinds 1 and 2   pid, create_time, guid, path, md5, sha256, cmd, user, extra
//   kind 2          domain, status, results, number
//   kinds 1 and 3   tail: 3 texts or nulls; shorts, longs: 2 numbers each, of which kind 3 has one long
// Owns all texts of the record. Built on one thread, and only read after that.
class DnsEvent {
public:
    // Throws Failure for an unknown key and for a value of the wrong kind.
    explicit DnsEvent(std::string_view json);
    DnsEvent(const DnsEvent&) = delete;
    DnsEvent& operator=(const DnsEvent&) = delete;

    // Its pointers lead into this object.
    const ST_DNS_NATIVE& native() const { return native_; }
    const char* query_name() const { return query_name_; }

private:
    // A key and the function that reads its value into the event.
    struct Field {
        std::string_view key;
        void (*read)(DnsEvent& event, const JsonText::Member& member);
    };
    static const Field kFields[];

    template <class Item, size_t count>
    void read_list(const JsonText::Member& member, Item (&out)[count]);

    // It keeps the members of the line; texts of the record point into them.
    JsonText fields_;
    // A deque, because texts point into its elements and these must not move.
    std::deque<JsonText> lists_;
    ST_DNS_NATIVE native_{};
    // All three are filled; the kind chooses.
    ST_DNS_VARIANT_1 one_{};
    ST_DNS_VARIANT_2 two_{};
    ST_DNS_VARIANT_3 three_{};
    bool with_variant_ = true;
    const char* query_name_ = nullptr;
};

}  // namespace zelhost
