// The key that was most likely meant where a key is missing.
#pragma once

#include <cjson/cJSON.h>

#include <string_view>

#include "check/node_set.h"

namespace zel::check {

// The member of the object whose name differs least from `key`; null when none is near. Members that were read are
// meant as they are. The answer is the name inside the node and lives as long as the tree.
const char* nearest_key(const cJSON* object, std::string_view key, const NodeSet& read);

}  // namespace zel::check
