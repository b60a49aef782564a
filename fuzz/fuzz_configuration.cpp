// Any text as a live configuration: applied when it is an object that holds both keys as texts, refused otherwise.
#include <jansson.h>

#include <string>

#include "fuzz.h"
#include "plugin/zelreshdl_config.h"

namespace {

bool has_both_keys(const char* text) {
    json_t* root = json_loads(text, 0, nullptr);
    const bool both =
        json_is_string(json_object_get(root, "delay_time")) && json_is_string(json_object_get(root, "queue_size"));
    json_decref(root);
    return both;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const int applied = update_configuration(text.c_str(), static_cast<uint32_t>(size));
    FUZZ_CHECK(applied == (size > 0 && has_both_keys(text.c_str()) ? 0 : -1));
    return 0;
}
