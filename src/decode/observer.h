// What the decoder and the builders tell an observer about a document: where the text is read, and why it is refused.
//
// Only libzelcheck.so is compiled with an observer (ZEL_OBSERVED is defined there); it defines these functions in
// check/ and explains a document with them. In the plug-in each of them is empty, and the compiler leaves nothing of
// it. An observer never changes what is decoded. Alarm worker only, as the decoder itself.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>

#include "decode/json_object.h"

namespace zel::observe {

#ifdef ZEL_OBSERVED

// Parses a document as cJSON_Parse does, and notes the tree and the byte at which the parser stopped.
cJSON* parse(const char* text);
// The decoder needs the tree no more. An observer may still.
void done_with(cJSON* tree);
// A member of an object was looked for; `value` is null when there is none. `object` may be any kind of node.
void looked_up(const cJSON* object, const cJSON* value);
// The document is refused, unless the key belongs to a post-operation: a key is missing; a value has another type than
// `type`; the number under a key names nothing that is known.
void missing(const cJSON* object, const char* key);
void mistyped(const cJSON* value, int type);
void unknown_number(const cJSON* object, const char* key);
// A number was stored: signed, or unsigned with the bits of a negative one.
void stored(const cJSON* value, int64_t number);
void stored(const cJSON* value, uint64_t number);
// A builder refused a text for the byte at `bad`. The alert is lost, unless the text is an element of a list.
void refused_text(const char* text, size_t size, size_t bad);
// The whole document has been decoded.
void decoded();

#else

inline cJSON* parse(const char* text) { return cJSON_Parse(text); }
inline void done_with(cJSON* tree) { cJSON_Delete(tree); }
inline void looked_up(const cJSON*, const cJSON*) {}
inline void missing(const cJSON*, const char*) {}
inline void mistyped(const cJSON*, int) {}
inline void unknown_number(const cJSON*, const char*) {}
inline void stored(const cJSON*, int64_t) {}
inline void stored(const cJSON*, uint64_t) {}
inline void refused_text(const char*, size_t, size_t) {}
inline void decoded() {}

#endif

}  // namespace zel::observe
