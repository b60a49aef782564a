// What zelhost says of a command line that it cannot parse.
#pragma once

#include <string>

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace zelhost {

// One sentence: what is wrong, and the nearest name that there is, or where all names are listed. `root` is the tree
// that was asked to parse the command line.
// The error is what parsing threw. The text ends without a line end.
std::string usage_error(const CLI::App& root, const CLI::ParseError& error);

}  // namespace zelhost
