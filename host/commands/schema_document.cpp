// The schema of an alert document. It is never stricter than the decoder: what is not needed may hold anything, a list
// may be anything at all, and a number anything that a number can be.
#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <new>
#include <span>

#include "check/zelcheck_host.h"
#include "host/commands/schema.h"

namespace zelhost {
namespace {

// The tables come from the decoder's rows, through the check library.
using json::Members;
using Table = zelcheck_key_table;
using Key = zelcheck_key;

constexpr const char* kWords =
    "An alert document as the agent takes it in the events 1536 and 1538. The agent finds keys in upper and lower case "
    "alike; here they are spelt as the engines spell them. Of a key that stands twice, also in another case, the agent "
    "reads the first. Keys that are not named here are passed over.";

// The keys that decide which others there are.
constexpr const char* kAlertType = "alert_type";
constexpr const char* kEventType = "type";

// How a value is held to its kind, if the key is needed.
// One row for each kind of value that the decoder knows.
struct KindRow {
    zelcheck_kind kind;
    const char* type;    // of JSON; null for lists and objects
    const char* format;  // what the agent keeps of a number
};
constexpr KindRow kKinds[] = {
    {ZELCHECK_TEXT, "string", nullptr},   {ZELCHECK_DECIMAL_TEXT, "string", nullptr},
    {ZELCHECK_INT32, "number", "int32"},  {ZELCHECK_UINT32, "number", "uint32"},
    {ZELCHECK_INT64, "number", "int64"},  {ZELCHECK_UINT64, "number", "uint64"},
    {ZELCHECK_TEXTS, nullptr, nullptr},   {ZELCHECK_OBJECT, nullptr, nullptr},
    {ZELCHECK_OBJECTS, nullptr, nullptr},
};

// Every kind has a row.
const KindRow& row_of(const Key& key) { return *std::ranges::find(kKinds, key.kind, &KindRow::kind); }

// What is said of a key that may be missing.
// What the decoder does with a value of another type.
std::string optional_words(const Key& key) {
    if (key.kind == ZELCHECK_TEXTS) return "Optional; a list, in which anything but texts is passed over.";
    const char* const type = row_of(key).type;
    return type == nullptr ? "Optional." : fmt::format("Optional; what is no {} counts as missing.", type);
}

// The agent cuts a number before it looks at it, so 2.7 counts as 2. `numbers` rise; neighbours become one range.
// A range ends below the next whole number, because fractions are cut.
Members one_of_numbers(const std::vector<uint32_t>& numbers) {
    std::vector<Members> ranges;
    for (size_t first = 0; first < numbers.size();) {
        size_t end = first + 1;
        while (end < numbers.size() && numbers[end] == numbers[end - 1] + 1) ++end;
        ranges.push_back({{"type", json::text("number")},
                          {"minimum", std::to_string(numbers[first])},
                          {"exclusiveMaximum", std::to_string(numbers[end - 1] + 1)}});
        first = end;
    }
    if (ranges.size() == 1) return ranges[0];
    std::vector<std::string> parts;
    std::ranges::transform(ranges, std::back_inserter(parts), json::object);
    return {{"anyOf", json::list(parts)}};
}

// The places of the bits that are set, counted from 0.
std::vector<uint32_t> bits_of(uint32_t bits) {
    std::vector<uint32_t> numbers;
    for (uint32_t i = 0; i < 32; ++i)
        if ((bits >> i & 1U) != 0) numbers.push_back(i);
    return numbers;
}

// "then" holds when the key has one of the numbers.
// A condition of the schema: if the key has one of these numbers, then the other schema holds, too.
std::string when(const char* key, const std::vector<uint32_t>& numbers, const std::string& then) {
    return json::object({{"if", has(key, json::object(one_of_numbers(numbers)))}, {"then", then}});
}

// Built from all tables of the decoder, and used once.
class DocumentSchema {
public:
    explicit DocumentSchema(std::span<const Table> tables) : tables_(tables) {
        // Types that no table takes are left out.
        for (const Table& table : tables) {
            alert_types_ |= table.alert_types;
            if (table.event_type != 0 && table.taken != 0) event_types_.push_back(table.event_type);
        }
    }

    // Definitions are added while the objects are written, since each may refer to others.
    std::string text() {
        Members schema = schema_head("Alert document", kWords);
        append(schema, object("document"));
        Members definitions;
        for (size_t i = 0; i < wanted_.size(); ++i) {  // it grows on the way
            const std::string name = wanted_[i];
            definitions.emplace_back(name, json::object(object(name)));
        }
        for (const Table& table : tables_)
            if (table.event_type != 0 && table.taken != 0)
                definitions.emplace_back(event_name(table), json::object(keys_of({&table, 1})));
        schema.emplace_back("$defs", json::object(definitions));
        return json::object(schema);
    }

private:
    // Keeps the order of the keys.
    static void append(Members& to, Members&& from) { std::ranges::move(from, std::back_inserter(to)); }
    static std::string event_name(const Table& table) { return "event_" + std::to_string(table.event_type); }
    // Tables of a document's further types and of event types hold under a condition.
    bool is_for_all(const Table& table) const { return table.event_type == 0 && table.alert_types == alert_types_; }

    // The numbers that a key may have which decides what else there is; none for all other keys.
    // These two keys are numbers with a meaning. Every other number may be any.
    std::vector<uint32_t> numbers_of(const Table& table, const Key& key) const {
        const auto is = [&](const char* object, const char* name) {
            return table.event_type == 0 && table.object == std::string(object) && key.name == std::string(name);
        };
        if (is("document", kAlertType)) return bits_of(alert_types_);
        if (is("event", kEventType)) return event_types_;
        return {};
    }

    // An object by its name: its keys, and what further keys it has under which condition.
    // The description, the type and the keys stand in the order in which a reader looks for them.
    Members object(const std::string& name) {
        // Keys that every object of this name has.
        std::vector<Table> always;
        // Keys under a condition.
        std::vector<std::string> further;
        const bool binding = is_binding(name);
        for (const Table& table : tables_) {
            if (table.object != name) continue;
            if (is_for_all(table))
                always.push_back(table);
            else if (table.event_type == 0)
                further.push_back(when(kAlertType, bits_of(table.alert_types), json::object(keys_of({&table, 1}))));
            else if (table.taken != 0)
                further.push_back(when(kEventType, {table.event_type}, refer_to(event_name(table))));
        }
        Members members = name == "document" ? Members{} : Members{{"description", json::text(always.front().words)}};
        if (binding) members.emplace_back("type", json::text("object"));
        append(members, keys_of(always, binding));
        if (!further.empty()) members.emplace_back("allOf", json::list(further));
        return members;
    }

    // An object that nobody needs binds nobody: whatever is wrong in it, the alert comes through.
    // What an optional object holds cannot refuse the document.
    bool is_binding(const std::string& name) const {
        if (name == "document") return true;
        return std::ranges::any_of(tables_, [&](const Table& table) {
            const std::span keys(table.keys, table.key_count);
            return std::ranges::any_of(
                keys, [&](const Key& key) { return key.needed != 0 && key.members != nullptr && key.members == name; });
        });
    }

    // With `binding` false nothing is required.
    Members keys_of(std::span<const Table> tables, bool binding = true) {
        Members members;
        Members properties;
        std::vector<std::string> required;
        for (const Table& table : tables) {
            if (table.event_type != 0) members.emplace_back("description", json::text(table.words));
            for (const Key& key : std::span(table.keys, table.key_count)) {
                // A key of an event may be found under another spelling already.
                const bool is_elsewhere = is_found_elsewhere(table, key);
                const bool needed = binding && key.needed != 0 && !is_elsewhere;
                std::string words = key.words;
                if (!needed && !is_elsewhere) words += ' ' + optional_words(key);
                properties.emplace_back(key.name, value_of(key, words, needed, numbers_of(table, key)));
                if (needed) required.push_back(key.name);
            }
        }
        members.emplace_back("properties", json::object(properties));
        if (!required.empty()) members.emplace_back("required", json::texts(required));
        return members;
    }

    // A key that differs from one of every event by case alone is never missing: the agent finds the other one.
    // Keys are compared without regard to case, as the decoder does it.
    bool is_found_elsewhere(const Table& table, const Key& key) const {
        if (table.event_type == 0) return false;
        return std::ranges::any_of(tables_, [&](const Table& each) {
            const std::span keys(each.keys, each.key_count);
            return each.object == std::string(table.object) && each.event_type == 0 &&
                   std::ranges::any_of(keys, [&](const Key& other) { return strcasecmp(other.name, key.name) == 0; });
        });
    }

    // What is said of one key: words, type, format, and what lies inside.
    std::string value_of(const Key& key, const std::string& words, bool needed, const std::vector<uint32_t>& numbers) {
        const KindRow& row = row_of(key);
        Members members = {{"description", json::text(words)}};
        if (!numbers.empty())
            append(members, one_of_numbers(numbers));
        else if (needed && row.type != nullptr)
            members.emplace_back("type", json::text(row.type));
        if (row.format != nullptr) members.emplace_back("format", json::text(row.format));
        if (key.kind == ZELCHECK_OBJECT) members.emplace_back("$ref", json::text(place_of(want(key.members))));
        // An object is walked like a list; any other value has no elements.
        if (key.kind == ZELCHECK_OBJECTS)
            for (const char* elements : {"items", "additionalProperties"})
                members.emplace_back(elements, refer_to(want(key.members)));
        return json::object(members);
    }

    // Notes that the object is referred to, so that it gets a definition.
    const std::string& want(const std::string& object) {
        const auto found = std::ranges::find(wanted_, object);
        return found != wanted_.end() ? *found : wanted_.emplace_back(object);
    }

    // Borrowed from the library, where they are constants.
    std::span<const Table> tables_;
    uint32_t alert_types_ = 0;           // bits of all types
    std::vector<uint32_t> event_types_;  // those that are taken
    std::vector<std::string> wanted_;    // objects that are referred to, in the order in which they are met
};

}  // namespace

// The tables are valid for the life of the process.
std::string document_schema() {
    const Table* tables = nullptr;
    size_t count = 0;
    if (zelcheck_keys(&tables, &count) != 0) throw std::bad_alloc();
    return DocumentSchema({tables, count}).text();
}

}  // namespace zelhost
