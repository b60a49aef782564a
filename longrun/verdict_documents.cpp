#include "longrun/verdict_documents.h"

#include <fmt/format.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <filesystem>

#include "host/lib/alert.h"
#include "host/lib/failure.h"
#include "host/lib/files.h"

namespace zelhost {
namespace {

using rapidjson::Value;

// Tokens that stand in the text as they are, for numbers and words that a tree does not keep. A text with the number of
// a row stands for it in the tree.
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
constexpr const char* kMarkBegin = "@TOKEN";
constexpr const char* kMarkEnd = "@";

template <class List>
const auto& pick(const List& list, std::mt19937& random) {
    return list[std::uniform_int_distribution<size_t>(0, std::size(list) - 1)(random)];
}

// A tree with a list of all its values that stand under a key, to draw from.
class Tree {
public:
    Tree(const std::string& text, std::mt19937& random) : random_(random) {
        document_.Parse<rapidjson::kParseStopWhenDoneFlag>(text.data(), text.size());
    }

    bool good() const { return !document_.HasParseError() && document_.IsObject(); }

    // Gives each rule an id of its own, so that the document repeats no other.
    void number_rules(uint64_t number) {
        if (!document_.HasMember("rule") || !document_["rule"].IsArray()) return;
        for (Value& rule : document_["rule"].GetArray())
            if (rule.IsObject() && rule.HasMember("rule_id") && rule["rule_id"].IsString())
                rule["rule_id"] = text_value(fmt::format("V-{}", number));
    }

    void mutate() {
        std::vector<Value*> objects;
        collect(document_, objects);
        Value& object = *objects[draw(objects.size())];
        if (object.ObjectEmpty()) return add(object, "unread", token());
        const auto member = object.MemberBegin() + static_cast<int>(draw(object.MemberCount()));
        const std::string key = member->name.GetString();
        switch (draw(10)) {
            case 0: object.RemoveMember(member); break;
            case 1: member->name = text_value(misspelt(key)); break;
            case 2:
            case 3: member->value = token(); break;
            case 4:
            case 5: member->value = text_value(pick(kTexts, random_)); break;
            case 6: add(object, draw(2) == 0 ? key : other_case(key), token()); break;
            case 7: add(object, "unread", token()); break;
            case 8: set(objects, "type", Value(static_cast<int>(draw(42)))); break;
            default: rarely(objects);
        }
    }

    std::string text() const {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        document_.Accept(writer);
        std::string text(buffer.GetString(), buffer.GetSize());
        for (size_t i = 0; i < std::size(kTokens); ++i) {
            const std::string mark = fmt::format("\"{}{}{}\"", kMarkBegin, i, kMarkEnd);
            for (size_t at; (at = text.find(mark)) != std::string::npos;) text.replace(at, mark.size(), kTokens[i]);
        }
        return text;
    }

private:
    uint32_t draw(size_t limit) { return std::uniform_int_distribution(0u, static_cast<uint32_t>(limit) - 1)(random_); }
    Value text_value(std::string_view text) {
        return Value(text.data(), static_cast<rapidjson::SizeType>(text.size()), document_.GetAllocator());
    }
    Value token() { return text_value(fmt::format("{}{}{}", kMarkBegin, draw(std::size(kTokens)), kMarkEnd)); }

    static void collect(Value& value, std::vector<Value*>& objects) {
        if (value.IsObject()) {
            objects.push_back(&value);
            for (auto& member : value.GetObject()) collect(member.value, objects);
        } else if (value.IsArray()) {
            for (Value& item : value.GetArray()) collect(item, objects);
        }
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

    void add(Value& object, std::string_view key, Value value) {
        object.AddMember(text_value(key), value, document_.GetAllocator());
    }

    // Sets a key in one of the objects that have it.
    void set(const std::vector<Value*>& objects, const char* key, Value value) {
        std::vector<Value*> with;
        std::ranges::copy_if(objects, std::back_inserter(with),
                             [key](Value* object) { return object->HasMember(key); });
        if (!with.empty()) (*with[draw(with.size())])[key] = value;
    }

    void rarely(const std::vector<Value*>& objects) {
        Value list(rapidjson::kArrayType);
        switch (draw(6)) {
            case 0: return set(objects, "status", text_value("Trigger"));
            case 1: return set(objects, "alert_type", Value(static_cast<int>(draw(25))));
            case 2: return set(objects, "Guid", text_value(std::string(draw(50), 'g')));
            case 3: return set(objects, "rule_id", text_value("V-repeated"));
            case 4: return set(objects, draw(2) == 0 ? "PreTime" : "PostTime", Value(0));
            default:
                for (uint32_t i = draw(4); i > 0; --i)
                    list.PushBack(draw(4) == 0 ? token() : text_value(pick(kTexts, random_)), document_.GetAllocator());
                add(*objects[draw(objects.size())], draw(2) == 0 ? "tags" : "Highlight", std::move(list));
        }
    }

    std::mt19937& random_;
    rapidjson::Document document_;
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
