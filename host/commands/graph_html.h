// A chain as one page that shows it without anything from elsewhere.
#pragma once

#include <string>

#include "host/lib/chain.h"

namespace zelhost {

// The page with the picture, its own style and script, and all that is known of each vertex and edge, as far as 2 MB
// hold it. Throws Failure when the picture cannot be drawn.
// The texts of the chain are escaped. No script but the page's own can run.
std::string chain_page(const Chain& chain);

}  // namespace zelhost
