// The tables of the decoder's keys with words, in the form of the face.
#include <cstdint>
#include <list>
#include <new>
#include <utility>
#include <vector>

#include "check/key_words.h"
#include "check/zelcheck_host.h"
#include "decode/alert_types.h"
#include "decode/event_types.h"
#include "decode/key_rows.h"

namespace zel::check {
namespace {

using Kind = zelcheck_kind;
static_assert(std::pair(Kind{ZELCHECK_TEXT}, Kind{ZELCHECK_OBJECTS}) ==
                  std::pair(static_cast<Kind>(ValueKind::text), static_cast<Kind>(ValueKind::objects)),
              "both enumerations go from texts to lists of objects");

// Bit N stands for alert type N. A table without a condition holds for all of them.
uint32_t alert_types(bool (*holds_for)(int32_t type)) {
    uint32_t bits = 0;
    for (int32_t type = 1; type <= alert_type::highest; ++type)
        if (holds_for == nullptr || holds_for(type)) bits |= 1U << type;
    return bits;
}

// All tables, the event types last. Made at the first question and kept.
class KeyTables {
public:
    KeyTables() {
        for (const KeyTable& table : document_key_tables()) add(table);
        for (const KeyTable& table : scenario_key_tables()) add(table);
        for (const EventType& type : event_types()) add({"event", type.keys}, type.uType, type.dispatched);
    }

    const std::vector<zelcheck_key_table>& all() const { return tables_; }

private:
    // A key without words gets an empty text here.
    void add(const KeyTable& table, uint32_t event_type = 0, bool taken = true) {
        const auto words = [&](const char* key) {
            const KeyWords* const row = find_key_words(table.object, event_type, key);
            return row == nullptr ? "" : row->words;
        };
        std::vector<zelcheck_key>& keys = keys_.emplace_back();
        for (const KeyRow& row : table.keys)
            keys.push_back({row.key, words(row.key), static_cast<Kind>(row.kind), row.need == Need::required ? 1 : 0,
                            row.members});
        tables_.push_back({table.object, words(""), alert_types(table.holds_for), event_type, taken ? 1 : 0,
                           keys.data(), keys.size()});
    }

    std::list<std::vector<zelcheck_key>> keys_;  // a list, since the tables point into it
    std::vector<zelcheck_key_table> tables_;
};

}  // namespace
}  // namespace zel::check

// When memory runs out while the tables are made, the next call tries again.
int32_t zelcheck_keys(const zelcheck_key_table** tables, size_t* count) {
    try {
        static const zel::check::KeyTables kept;
        *tables = kept.all().data();
        *count = kept.all().size();
        return 0;
    } catch (const std::bad_alloc&) {
        return -1;
    }
}
