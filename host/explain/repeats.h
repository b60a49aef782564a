// Which alert a repeat repeats. One thread at a time: the checker behind it keeps state.
#pragma once

#include "host/explain/story.h"

namespace zelhost {

// The oldest alert that has the same rules and images, by the plug-in's own code; null when the documents are not
// there, as in a log, or none of them is the one.
// The result is one of the stories that `repeat` borrows.
const Story* repeated_by(const Story& repeat);

}  // namespace zelhost
