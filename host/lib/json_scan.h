// JSON looked at from outside, without a judgement: how far its brackets reach, which members an object has, and what
// stands behind the escapes of a string. For text that another parser is to judge.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zelhost {

// A member of an outermost object.
// Both views lie in the text that is scanned.
struct ScannedMember {
    std::string_view key;    // as it stands between its quotes
    std::string_view value;  // as it stands
};

// Goes through the members of the object that a text begins with. It stops where no member can follow.
// Keeps a view of the text, which must outlive it. It does not allocate.
class MemberScan {
public:
    explicit MemberScan(std::string_view text);

    // False at the object's end, or where the text is no object any more.
    bool next(ScannedMember& member);
    // Once there is no other: whether the text is one object that is closed, with nothing behind it.
    bool is_whole() const;

private:
    // Each of these takes a piece of the text and moves on behind it.
    bool take(char wanted);
    void skip_spaces();
    void skip_string();
    bool skip_value();

    std::string_view text_;
    size_t at_ = 0;
    bool good_;
};

// What the end of a text leaves open.
struct OpenEnd {
    bool open = false;           // an object, a list or a string
    bool awaits_object = false;  // where the text ends, an object may stand
};
OpenEnd open_end(std::string_view text);

// The value of a string; the literal begins with its quote. An escape that stands for no character becomes U+FFFD.
std::string literal_value(std::string_view literal);
// The byte of the literal that gives the byte `index` of its value, or the closing quote.
size_t literal_place(std::string_view literal, size_t index);

}  // namespace zelhost
