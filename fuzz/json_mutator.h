// A mutator for targets whose input is an alert document. It takes a text that is JSON apart, changes keys, values and
// structure, and prints it again; the keys are those of the decoder's tables. A text that is no JSON, and now and then
// one that is, is changed byte by byte.
#pragma once

#include <cstddef>

namespace fuzz {

// How many bytes the target reads before the document. Defined by each target.
extern const size_t head_size;

}  // namespace fuzz
