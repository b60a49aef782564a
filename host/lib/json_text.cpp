#include "host/lib/json_text.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <strings.h>

#include <algorithm>
#include <limits>

#include "host/lib/failure.h"

namespace zelhost {
namespace {

// Notes the members of the outermost object or array and where their values begin and end.
// The parser calls it for each value that it meets. Only those at depth 1 are members.
class Collector : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Collector> {
public:
    using Type = JsonText::Type;
    using Size = rapidjson::SizeType;

    Collector(std::string_view text, const rapidjson::MemoryStream& stream, Type outermost,
              std::vector<JsonText::Member>& members)
        : text_(text), stream_(stream), outermost_(outermost), members_(members) {}

    bool Null() { return scalar(Type::null); }
    bool Bool(bool) { return scalar(Type::boolean); }
    bool Int(int value) { return number(value); }
    bool Uint(unsigned value) { return number(value); }
    bool Int64(int64_t value) { return number(value); }
    // A number too large for a signed one is no whole number here.
    bool Uint64(uint64_t value) {
        if (value <= std::numeric_limits<int64_t>::max()) return number(static_cast<int64_t>(value));
        return scalar(Type::number);
    }
    bool Double(double) { return scalar(Type::number); }
    bool String(const char* text, Size size, bool) {
        if (!scalar(Type::string)) return false;
        if (depth_ == 1) members_.back().text.assign(text, size);
        return true;
    }
    bool Key(const char* text, Size size, bool) {
        // The key is behind the parser. The value begins behind the colon and the spaces.
        if (depth_ == 1) members_.emplace_back().key.assign(text, size);
        if (depth_ == 1) begin_ = text_.find_first_not_of(" \t\r\n:", stream_.Tell());
        return true;
    }
    bool StartObject() { return open(Type::object); }
    bool StartArray() { return open(Type::array); }
    bool EndObject(Size) { return close(); }
    bool EndArray(Size) { return close(); }

private:
    // Each of the following answers false when the text is not of the form that is wanted, which ends the parser.
    bool number(int64_t value) {
        if (!scalar(Type::number)) return false;
        if (depth_ == 1) members_.back().whole = value;
        return true;
    }
    bool scalar(Type type) {
        if (depth_ == 1) {
            begin_item(type);
            finish_item(stream_.Tell());
        }
        return depth_ > 0;
    }
    // The iterative parser calls these two with the bracket still to be taken.
    bool open(Type type) {
        if (depth_ == 1) begin_item(type);
        if (depth_ == 0) item_after_ = stream_.Tell() + 1;
        return depth_++ > 0 || type == outermost_;
    }
    // The end of a member that is an object or a list itself; its inside is left unread.
    bool close() {
        if (--depth_ == 1) finish_item(stream_.Tell() + 1);
        return true;
    }
    // In an object the key has made the member already.
    void begin_item(Type type) {
        if (outermost_ == Type::array) {
            members_.emplace_back();
            begin_ = text_.find_first_not_of(" \t\r\n,", item_after_);
        }
        members_.back().type = type;
    }
    // The value as it stands in the text, without the spaces around it.
    void finish_item(size_t end) {
        members_.back().raw = text_.substr(begin_, end - begin_);
        item_after_ = end;
    }

    std::string_view text_;
    const rapidjson::MemoryStream& stream_;
    Type outermost_;
    std::vector<JsonText::Member>& members_;
    int depth_ = 0;
    size_t begin_ = 0;       // of the value at hand
    size_t item_after_ = 0;  // where the next item of an array may begin
};

}  // namespace

// The stream lets the collector ask how far the parser is.
JsonText::JsonText(std::string_view text, Type outermost) {
    rapidjson::MemoryStream stream(text.data(), text.size());
    Collector collector(text, stream, outermost, members_);
    rapidjson::Reader reader;
    // Iterative: a line of nothing but brackets must not eat the stack.
    const auto result = reader.Parse<rapidjson::kParseIterativeFlag>(stream, collector);
    if (result.Code() == rapidjson::kParseErrorTermination)
        throw Failure("not a JSON {}", outermost == Type::object ? "object" : "list");
    if (result.IsError())
        throw Failure("no valid JSON at byte {}: {}", result.Offset() + 1, rapidjson::GetParseError_En(result.Code()));
}

// A line has a handful of members, so that a search through all is quick.
const JsonText::Member* JsonText::find(std::string_view key) const {
    const auto found = std::ranges::find(members_, key, &Member::key);
    return found == members_.end() ? nullptr : &*found;
}

// Keys are ASCII; the plug-in's parser ignores case in the same way.
bool JsonText::has_ignoring_case(std::string_view key) const {
    return std::ranges::any_of(members_, [&](const Member& member) {
        return member.key.size() == key.size() && strncasecmp(member.key.data(), key.data(), key.size()) == 0;
    });
}

// A key that is misspelt would otherwise be left out silently.
void JsonText::expect_only(std::initializer_list<std::string_view> keys) const {
    for (const Member& member : members_) {
        // Two members with one key would leave open which of them counts.
        if (std::ranges::find(keys, member.key) == keys.end())
            throw Failure("\"{}\" is not known here; known: {}", member.key, fmt::join(keys, ", "));
        if (find(member.key) != &member) throw Failure("\"{}\" stands twice", member.key);
    }
}

// What is absent has its default; what is there and wrong has none.
int64_t JsonText::whole(std::string_view key, int64_t lowest, int64_t highest, std::optional<int64_t> absent) const {
    const Member* member = find(key);
    if (member == nullptr && absent) return *absent;
    // A number with a fraction has no whole value, so it is refused here.
    if (member == nullptr || !member->whole || *member->whole < lowest || *member->whole > highest)
        throw Failure("\"{}\" must be a whole number from {} to {}", key, lowest, highest);
    return *member->whole;
}

const std::string* JsonText::text(std::string_view key) const {
    const Member* member = find(key);
    if (member == nullptr || member->type == Type::null) return nullptr;
    if (member->type != Type::string) throw Failure("\"{}\" must be a string", key);
    return &member->text;
}

}  // namespace zelhost
