#include "longrun/verdict_documents.h"

#include <cjson/cJSON.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>

#include "host/lib/alert.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"

namespace zelhost {
namespace {

// What stands in the text as it is, for numbers and words that a tree does not keep.
constexpr const char* kTokens[] = {
    "0",
    "-0",
    "-1",
    "0.5",
    "1.5",
    "1e3",
    "007",
    "2147483647",
    "2147483648",
    "4294967295",
    "-2147483649",
    "9007199254740992",
    "9007199254740993",
    "9223372036854775807",
    "9223372036854775808",
    "18446744073709551615",
    "18446744073709551616",
    "-9223372036854775809",
    "1e400",
    "-1e400",
    "1e",
    "-",
    "+1",
    "0x10",
    "nul",
    "true",
    "false",
    "null",
    "[]",
    "{}",
    "[1,2]",
    "{\"a\":{}}",
    "\"\"",
    "\"0\"",
    "\"7\"",
    "\"\\u0000x\"",
    "\"\\ud83d\\ude00\"",
    "\"\\ud800\"",
    "\"\\u12g4\"",
    "\"\\q\"",
};
// Texts with bytes that not every message may carry.
constexpr std::string_view kTexts[] = {
    "",
    "\x01",
    "a\x7f",
    "\xc3\xa4",
    "\xe4\xb8\xad\xe6\x96\x87",
    "\xc3\xa4\xe4\xb8",
    "\xe4\xb8",
    "\x80",
    "ok\xff",
    "\xc0\x80",
    "\xed\xa0\x80",
    "\xf8\x88\x80\x80\x80",
    "line\nbreak",
    "tab\t",
    "\x1b[31m",
    "Trigger",
    "host",
    "/tmp",
    "/dev/null",
    "SubjectPid",
    "ObjectPid",
};

template <class List>
const auto& pick(const List& list, std::mt19937& random) {
    return list[std::uniform_int_distribution<size_t>(0, std::size(list) - 1)(random)];
}

struct TreeDeleter {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};

// A document as a tree that is changed in one place at a time.
class Tree {
public:
    Tree(const std::string& text, std::mt19937& random)
        : random_(random), root_(cJSON_ParseWithLength(text.data(), text.size())) {}

    bool good() const { return cJSON_IsObject(root_.get()) != 0; }

    // Gives each rule an id of its own, so that the document repeats no other.
    void number_rules(uint64_t number) {
        const cJSON* const rules = cJSON_GetObjectItem(root_.get(), "rule");
        for (cJSON* rule = rules == nullptr ? nullptr : rules->child; rule != nullptr; rule = rule->next)
            if (cJSON_IsString(cJSON_GetObjectItem(rule, "rule_id")))
                cJSON_ReplaceItemInObject(rule, "rule_id", text_value(fmt::format("V-{}", number)));
    }

    void mutate() {
        std::vector<cJSON*> objects;
        collect(root_.get(), objects);
        cJSON* const object = pick(objects, random_);
        std::vector<cJSON*> members;
        for (cJSON* member = object->child; member != nullptr; member = member->next) members.push_back(member);
        if (members.empty()) return add(object, "unread", token());
        cJSON* const member = pick(members, random_);
        const std::string key = member->string;
        switch (draw(10)) {
            case 0: cJSON_Delete(cJSON_DetachItemViaPointer(object, member)); break;
            case 1: replace(object, member, misspelt(key), cJSON_Duplicate(member, 1)); break;
            case 2:
            case 3: replace(object, member, key, token()); break;
            case 4:
            case 5: replace(object, member, key, text_value(pick(kTexts, random_))); break;
            case 6: add(object, draw(2) == 0 ? key : other_case(key), token()); break;
            case 7: add(object, "unread", token()); break;
            case 8: set(objects, "type", cJSON_CreateNumber(draw(42))); break;
            default: rarely(objects);
        }
    }

    std::string text() const {
        const std::unique_ptr<char, void (*)(void*)> printed(cJSON_PrintUnformatted(root_.get()), cJSON_free);
        return printed == nullptr ? "" : printed.get();
    }

private:
    uint32_t draw(size_t limit) { return std::uniform_int_distribution(0u, static_cast<uint32_t>(limit) - 1)(random_); }
    static cJSON* text_value(std::string_view text) { return cJSON_CreateString(std::string(text).c_str()); }
    cJSON* token() { return cJSON_CreateRaw(pick(kTokens, random_)); }

    static void collect(cJSON* value, std::vector<cJSON*>& objects) {
        if (cJSON_IsObject(value)) objects.push_back(value);
        for (cJSON* child = value->child; child != nullptr; child = child->next) collect(child, objects);
    }

    std::string misspelt(std::string key) {
        if (key.size() < 2) return key + "x";
        const size_t at = draw(key.size() - 1);
        if (draw(2) == 0)
            std::swap(key[at], key[at + 1]);
        else
            key.erase(at, 1);
        return key;
    }
    static std::string other_case(std::string key) {
        for (char& letter : key)
            if (isalpha(static_cast<unsigned char>(letter)) != 0) letter = static_cast<char>(letter ^ 0x20);
        return key;
    }

    static void add(cJSON* object, const std::string& key, cJSON* value) {
        cJSON_AddItemToObject(object, key.c_str(), value);
    }
    // In its place, so that the order of the keys stays.
    static void replace(cJSON* object, cJSON* member, const std::string& key, cJSON* value) {
        cJSON holder{};
        cJSON_AddItemToObject(&holder, key.c_str(), value);  // gives the value its name
        cJSON_ReplaceItemViaPointer(object, member, cJSON_DetachItemViaPointer(&holder, value));
    }

    // Sets a key in one of the objects that have it.
    void set(const std::vector<cJSON*>& objects, const char* key, cJSON* value) {
        std::vector<cJSON*> with;
        for (cJSON* object : objects)
            if (cJSON_HasObjectItem(object, key) != 0) with.push_back(object);
        if (with.empty()) return cJSON_Delete(value);
        cJSON_ReplaceItemInObject(pick(with, random_), key, value);
    }

    void rarely(const std::vector<cJSON*>& objects) {
        switch (draw(6)) {
            case 0: return set(objects, "status", text_value("Trigger"));
            case 1: return set(objects, "alert_type", cJSON_CreateNumber(draw(25)));
            case 2: return set(objects, "Guid", text_value(std::string(draw(50), 'g')));
            case 3: return set(objects, "rule_id", text_value("V-repeated"));
            case 4: return set(objects, draw(2) == 0 ? "PreTime" : "PostTime", cJSON_CreateNumber(0));
            default: break;
        }
        cJSON* const list = cJSON_CreateArray();
        for (uint32_t i = draw(4); i > 0; --i)
            cJSON_AddItemToArray(list, draw(4) == 0 ? token() : text_value(pick(kTexts, random_)));
        add(pick(objects, random_), draw(2) == 0 ? "tags" : "Highlight", list);
    }

    std::mt19937& random_;
    std::unique_ptr<cJSON, TreeDeleter> root_;
};

}  // namespace

VerdictDocuments::VerdictDocuments(const std::string& folder, uint32_t seed) : random_(seed) {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) files.push_back(entry.path());
    if (files.empty()) throw Failure("{} holds no documents", folder);
    std::ranges::sort(files);  // the folder's own order differs from disk to disk
    for (const std::string& file : files) seeds_.push_back(read_file(file));
    seeds_.push_back(Alert().text());
}

std::string VerdictDocuments::good() {
    return Alert{.rules = {{.id = fmt::format("V-good-{}", ++number_)}}, .details = false}.text();
}

std::string VerdictDocuments::next() {
    std::string text = mutated(seeds_[below(static_cast<uint32_t>(seeds_.size()))]);
    if (below(6) == 0) overwrite(text);
    return text;
}

// Most documents get one change: with many, nearly all would be refused for the first of them.
std::string VerdictDocuments::mutated(const std::string& seed) {
    Tree tree(seed, random_);
    if (!tree.good()) return seed;
    if (below(20) != 0) tree.number_rules(++number_);
    for (uint32_t changes = below(4) == 0 ? below(4) : below(2); changes > 0; --changes) tree.mutate();
    return tree.text();
}

void VerdictDocuments::overwrite(std::string& text) {
    const size_t at = below(static_cast<uint32_t>(text.size()) + 1);
    const auto byte = static_cast<char>(below(256));
    switch (below(7)) {
        case 0: text.resize(at); break;
        case 1: text.insert(at, 1, byte); break;
        case 2: text.insert(at, 1, '\0'); break;
        case 3: text.erase(at, 1 + below(3)); break;
        case 4: text += below(2) == 0 ? " }x" : " \n"; break;
        case 5: text.insert(0, "\xEF\xBB\xBF"); break;
        default:
            if (at < text.size()) text[at] = byte;
    }
}

}  // namespace zelhost
