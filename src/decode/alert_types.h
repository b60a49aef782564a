// The alert types of a document that are treated on their own; all others go by the common rules. The message schema
// has the same numbers.
#pragma once

#include <cstdint>

namespace alert_type {

inline constexpr int32_t ioc = 1;
inline constexpr int32_t ioa = 2;     // has a scenario
inline constexpr int32_t memory = 6;  // a finding in the memory of the subject
inline constexpr int32_t rts_adr = 7;
inline constexpr int32_t highest = 22;

// What a document of this type has beside the keys of every document: the description of a container, the key by which
// an indicator matched, a scenario or a message of the engine.
constexpr bool has_container(int32_t type) { return type == ioa || type == memory; }
constexpr bool has_malicious_key(int32_t type) { return type == ioc; }
constexpr bool has_scenario(int32_t type) { return type == ioa; }
constexpr bool has_message(int32_t type) { return type == memory || type == rts_adr; }

}  // namespace alert_type
