// The page of `zelhost graph`, built in from the files of host/commands/graph_page/.
#pragma once

#include <string_view>

namespace zelhost::graph_page {

extern const std::string_view kHtml;  // with {{names}} where the page of a chain differs
extern const std::string_view kStyle;
extern const std::string_view kScript;

}  // namespace zelhost::graph_page
