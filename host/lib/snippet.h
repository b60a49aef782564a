// A long line cut around a place in it, as compilers show one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zelhost {

// A cut of a line around a place, and a line of marks that stands below it: a caret under the place's first column and
// tildes under the others.
// Both texts have the same columns. The caller prints them one below the other.
struct Snippet {
    std::string text;
    std::string marks;
};
// `size` bytes from `at` on are marked. A place behind the line's last byte gets a caret behind it.
Snippet cut_around(std::string_view line, size_t at, size_t size);

}  // namespace zelhost
