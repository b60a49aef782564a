#include "json_mutator.h"

#include <cjson/cJSON.h>

#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "decode/event_types.h"
#include "fuzz.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace {

using Random = std::minstd_rand;
using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

// One in so many documents is changed byte by byte.
constexpr uint32_t kRawEvery = 16;
constexpr int kMostChanges = 4;
constexpr size_t kMostNodes = 4096;

// Texts that the code compares with, and such as are hard to carry.
constexpr const char* kTexts[] = {"",         "Verbose",      "low",      "Medium", "High",
                                  "CRITICAL", "Enable",       "Disable",  "Verify", "Trigger",
                                  "host",     "XDR-IOA-1",    "xdr-ioa-", "1",      "18446744073709551615",
                                  "-1",       "/etc/passwd",  "/",        "\x01",   "\xc3\xa9",
                                  "\xff",     "\xed\xa0\x80", "a\tb"};
constexpr double kNumbers[] = {0,    1,    2,   3,     6,  7,           9,           10,           22,
                               23,   34,   39,  40,    -1, 2147483647., 2147483648., -2147483649., 4294967295.,
                               1e15, 1e19, 0.5, -1e300};

template <class List>
auto& any_of(List& list, Random& random) {
    return list[random() % std::size(list)];
}

const std::vector<const char*>& keys() {
    static const std::vector<const char*> all = [] {
        std::vector<const char*> names;
        const auto add = [&](std::span<const zel::KeyRow> rows) {
            for (const zel::KeyRow& row : rows) names.push_back(row.key);
        };
        for (const zel::KeyTable& table : zel::document_key_tables()) add(table.keys);
        for (const zel::KeyTable& table : zel::scenario_key_tables()) add(table.keys);
        for (const zel::EventType& type : zel::event_types()) add(type.keys);
        return names;
    }();
    return all;
}

// A value and the object or list that holds it; the outermost one has none.
struct Node {
    cJSON* value;
    cJSON* parent;
};

void collect(cJSON* value, cJSON* parent, std::vector<Node>& nodes) {
    if (nodes.size() == kMostNodes) return;
    nodes.push_back({value, parent});
    for (cJSON* child = value->child; child != nullptr; child = child->next) collect(child, value, nodes);
}

// The bytes of a text as libFuzzer changes them; a byte of 0 ends it.
std::string changed_text(const char* text) {
    std::string room(text);
    const size_t size = room.size();
    room.resize(size + 64);
    room.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(room.data()), size, room.size()));
    return room;
}

cJSON* new_value(Random& random) {
    switch (random() % 7) {
        case 0: return cJSON_CreateNull();
        case 1: return cJSON_CreateBool(random() % 2 == 0);
        case 2: return cJSON_CreateArray();
        case 3: return cJSON_CreateObject();
        case 4: return cJSON_CreateNumber(static_cast<int>(random() % 64));
        case 5: return cJSON_CreateNumber(any_of(kNumbers, random));
        default: return cJSON_CreateString(any_of(kTexts, random));
    }
}

// Another value in the place of this one; a text or a number is most often changed and not replaced.
cJSON* changed_value(const cJSON& value, Random& random) {
    if (random() % 4 == 0) return new_value(random);
    if (cJSON_IsString(&value)) return cJSON_CreateString(changed_text(value.valuestring).c_str());
    if (!cJSON_IsNumber(&value)) return new_value(random);
    double number = value.valuedouble;
    LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(&number), sizeof number, sizeof number);
    return cJSON_CreateNumber(random() % 2 == 0 ? number : value.valuedouble + static_cast<int>(random() % 5) - 2);
}

void rename(cJSON& value, const std::string& key) {
    if (value.string == nullptr) return;
    cJSON_free(value.string);
    value.string = static_cast<char*>(cJSON_malloc(key.size() + 1));
    memcpy(value.string, key.c_str(), key.size() + 1);
}

// A copy keeps the key of its original or gets another one. In a list it goes to the front or to the end: the packaged
// library refuses the places between.
void insert(cJSON* into, cJSON* value, Random& random) {
    const std::string key = value->string != nullptr && random() % 2 == 0 ? value->string : any_of(keys(), random);
    const bool inserted = cJSON_IsObject(into) ? cJSON_AddItemToObject(into, key.c_str(), value)
                          : random() % 2 == 0  ? cJSON_InsertItemInArray(into, 0, value)
                                               : cJSON_AddItemToArray(into, value);
    FUZZ_CHECK(inserted);
}

void change(cJSON* root, Random& random) {
    std::vector<Node> nodes;
    collect(root, nullptr, nodes);
    const auto [value, parent] = any_of(nodes, random);
    const bool holds_values = cJSON_IsObject(value) || cJSON_IsArray(value);
    switch (random() % 8) {
        case 0:  // away with it
            if (parent != nullptr) cJSON_Delete(cJSON_DetachItemViaPointer(parent, value));
            return;
        case 1:  // twice
            if (parent != nullptr) insert(parent, cJSON_Duplicate(value, true), random);
            return;
        case 2:  // under another key, or its own in another spelling
            if (value->string != nullptr)
                rename(*value, random() % 8 == 0 ? changed_text(value->string) : any_of(keys(), random));
            return;
        case 3:  // one more value within
            if (holds_values) insert(value, new_value(random), random);
            return;
        case 4:  // a copy of something else within; nodes hold what was there before, so it cannot hold itself
            if (holds_values) insert(value, cJSON_Duplicate(any_of(nodes, random).value, true), random);
            return;
        default: break;
    }
    // An object or a list is replaced seldom, since all that it holds goes with it.
    if (parent == nullptr || (holds_values && random() % 8 != 0)) return;
    // The value stays in its place with its key.
    cJSON* const other = changed_value(*value, random);
    std::swap(value->type, other->type);
    std::swap(value->child, other->child);
    std::swap(value->valuestring, other->valuestring);
    std::swap(value->valuedouble, other->valuedouble);
    std::swap(value->valueint, other->valueint);
    cJSON_Delete(other);
}

// 0 when the text is no JSON or when the outcome does not fit.
size_t mutate_document(char* text, size_t size, size_t max_size, Random& random) {
    const Json root(cJSON_ParseWithLength(text, size), cJSON_Delete);
    if (root == nullptr) return 0;
    const int changes = 1 + static_cast<int>(random() % kMostChanges);
    for (int i = 0; i < changes; ++i) change(root.get(), random);
    const std::unique_ptr<char, decltype(&cJSON_free)> printed(cJSON_PrintUnformatted(root.get()), cJSON_free);
    const size_t length = printed == nullptr ? 0 : strlen(printed.get());
    if (length > max_size) return 0;
    memcpy(text, printed.get(), length);
    return length;
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed) {
    Random random(seed);
    const size_t head = fuzz::head_size;
    if (size < head || max_size <= head || random() % kRawEvery == 0) return LLVMFuzzerMutate(data, size, max_size);
    if (head > 0 && random() % 4 == 0) {
        LLVMFuzzerMutate(data, head, head);
        return size;
    }
    const size_t length = mutate_document(reinterpret_cast<char*>(data) + head, size - head, max_size - head, random);
    return length > 0 ? head + length : LLVMFuzzerMutate(data, size, max_size);
}
