// JSON text put together from parts. Each part is JSON itself, and a schema is made of parts within parts.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zelhost::json {

// Keys in the order in which they are to stand, each with its value as JSON.
using Members = std::vector<std::pair<std::string, std::string>>;

// Each makes JSON of its argument: a text in quotes, an object, a list of values, a list of texts.
// `text` must be UTF-8.
std::string text(std::string_view value);
std::string object(const Members& members);
std::string list(const std::vector<std::string>& values);
std::string texts(const std::vector<std::string>& values);

// One member a line, four spaces a level, with a line end. The parts must have made valid JSON.
std::string pretty(const std::string& json);

}  // namespace zelhost::json
