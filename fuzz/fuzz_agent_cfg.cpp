// Any bytes as agent_cfg.json: the version is the first 15 bytes of the text that stands there, or the built-in one.
// The same file is read with another JSON library, which must find the same text where both take the file.
#include <cjson/cJSON.h>

#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "agent_file.h"
#include "common/zel_bpsdk_api.h"
#include "fuzz.h"

namespace {

// Of an object whose keys stand once: of a key that stands twice the libraries take different ones.
const cJSON* member(const cJSON* object, std::string_view key) {
    const cJSON* found = nullptr;
    for (const cJSON* item = cJSON_IsObject(object) ? object->child : nullptr; item != nullptr; item = item->next) {
        if (key != item->string) continue;
        if (found != nullptr) return nullptr;
        found = item;
    }
    return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using Binding = ZelBpSdkApi::Binding;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const fuzz::AgentFile file(bytes);
    Binding binding;
    const bool found = binding.read_version();
    const std::string_view version(binding.szVersion, strnlen(binding.szVersion, sizeof binding.szVersion));
    FUZZ_CHECK(version.size() < sizeof binding.szVersion);
    FUZZ_CHECK(found || version == Binding{}.szVersion);

    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> root(cJSON_ParseWithLength(bytes.data(), size), cJSON_Delete);
    const char* const text = cJSON_GetStringValue(member(member(root.get(), "version"), "components"));
    if (found && text != nullptr) FUZZ_CHECK(version == std::string_view(text).substr(0, sizeof binding.szVersion - 1));

    // A second reading of the same file finds the same.
    Binding again;
    FUZZ_CHECK(again.read_version() == found &&
               memcmp(again.szVersion, binding.szVersion, sizeof again.szVersion) == 0);
    return 0;
}
