// The page of `zelhost graph`, built in from the files of host/commands/graph_page/.
// A change of these files takes a new build.
#pragma once

#include <string_view>

namespace zelhost::graph_page {

// Script and style are put into the page as they stand, so the page needs no other file.
extern const std::string_view kHtml;  // with {{names}} where the page of a chain differs
extern const std::string_view kStyle;
extern const std::string_view kScript;

}  // namespace zelhost::graph_page
