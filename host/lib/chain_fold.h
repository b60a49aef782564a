// Makes a chain small enough to be drawn and read.
#pragma once

#include <cstddef>

#include "host/lib/chain.h"

namespace zelhost {

// Numbers for a picture that fits a screen. A caller may ask for others.
struct FoldLimits {
    size_t vertices = 300;  // up to here every vertex is shown
    size_t edges = 600;
    size_t leaves = 5;  // of so many of one parent and kind one is made, when there are too many vertices
};

// In a chain with more vertices than the limit, leaves of one parent and kind become one vertex, "312 files". A chain
// that is too large even so keeps what lies nearest to what the rules hit, and each of these one vertex for what lies
// behind it. Edges of one kind between two vertices become one. The note of the result says what is not shown as it
// was.
// The chain is taken by value, because its texts are moved into the result.
Chain fold_chain(Chain chain, const FoldLimits& limits = {});

}  // namespace zelhost
