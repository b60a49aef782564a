// Pages about the program and its commands, made from the parser's tree.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace zelhost {

// The manual page of a command, or with the root of the tree that of the program, as roff for man(1).
// Both texts are those of the files in docs/, so a test can compare them.
std::string man_page(const CLI::App& app);

// Tables in Markdown: options and exit statuses of a command, or with the root of the tree commands and exit statuses.
std::string markdown_tables(const CLI::App& app);

}  // namespace zelhost
