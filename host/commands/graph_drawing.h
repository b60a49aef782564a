// A chain as a picture.
#pragma once

#include <string>

#include "host/lib/chain.h"

namespace zelhost {

// What is known by the ending of a file.
// DOT is the text form of a graph. The other three are pictures.
enum class Picture { dot, svg, png, html };

// The whole file but for html, which graph_html.h makes of the SVG picture. Vertices are "v0", "v1" and so on in the
// order of the chain, edges "e0", "e1": as names in DOT and as ids in SVG. Throws Failure when the library cannot draw.
// The chain must be small enough to be drawn, as fold_chain makes it.
std::string draw_chain(const Chain& chain, Picture picture);

// A class in SVG: "named", "hit" or nothing.
// The text lives as long as the process. Style sheets refer to it.
std::string_view mark_word(Mark mark);

}  // namespace zelhost
