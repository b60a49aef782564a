// A JSON object or array whose members are known by their places in the text, so that a payload reaches the bus as the
// very bytes that stand in the input. What is deeper is a JsonText of its own, made from the member's place.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelhost {

// Owns keys and texts; the values as they stand are views. Made on one thread, and any thread may
// read it then.
class JsonText {
public:
    enum class Type { null, boolean, number, string, object, array };

    // One member of an object, or one item of an array.
    struct Member {
        std::string key;  // empty in an array
        Type type = Type::null;
        std::string_view raw;          // the value as it stands in the line
        std::string text;              // a string's value; any bytes
        std::optional<int64_t> whole;  // a number without fraction that fits
    };

    // Keeps views of `text`. Throws Failure when it is not one object, or not one array if that is wanted.
    explicit JsonText(std::string_view text, Type outermost = Type::object);

    const std::vector<Member>& members() const { return members_; }
    // The first member with this key, or null.
    const Member* find(std::string_view key) const;
    // Whether a key stands there, in upper or lower case.
    bool has_ignoring_case(std::string_view key) const;

    // Throws Failure for a key that is not among these, and for one that stands twice.
    void expect_only(std::initializer_list<std::string_view> keys) const;
    // The value of a whole number within the limits, or `absent` when there is no such member. Throws Failure
    // otherwise.
    int64_t whole(std::string_view key, int64_t lowest, int64_t highest, std::optional<int64_t> absent = {}) const;
    // The text of a string; null when there is no such member or the value is null. Throws Failure otherwise.
    const std::string* text(std::string_view key) const;

private:
    // In the order of the text. Members with the same key are all there.
    std::vector<Member> members_;
};

}  // namespace zelhost
