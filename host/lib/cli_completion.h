// Completions for shells, made from the parser's tree.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace zelhost {

enum class Shell { bash, zsh, fish };

// The script that a shell reads to complete commands, options and their values. `root` is the root of the tree.
// The text is complete, with a comment at its top. Any thread.
std::string completion_script(const CLI::App& root, Shell shell);

}  // namespace zelhost
