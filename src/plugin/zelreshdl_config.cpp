#include "plugin/zelreshdl_config.h"

#include <jansson.h>

#include <cstdlib>
#include <memory>

#include "common/log.h"
#include "pipeline/reshdlwork.h"
#include "plugin/zelreshdl_engine.h"

namespace {

// Null after the one log line that both keys share. It names "delay_time" for either of them; operators know it so.
const char* text_at(const json_t* root, const char* key) {
    const char* text = json_string_value(json_object_get(root, key));
    if (text == nullptr) LOG_ERROR("delay_time is not a string");
    return text;
}

// The low 32 bits of a decimal number; 0 for a text that is none.
uint32_t number(const char* text) { return static_cast<uint32_t>(strtol(text, nullptr, 10)); }

}  // namespace

// The data are read as a terminated text; the size is only tested and shown. Both keys are needed before one of them
// takes effect.
int update_configuration(const char* data, uint32_t size) {
    if (data == nullptr || size == 0) {
        LOG_ERROR("invalid param");
        return -1;
    }
    LOG_INFO("plugin_configuration_update data:%s size: %u", data, size);
    const std::unique_ptr<json_t, decltype(&json_decref)> root(json_loads(data, 0, nullptr), &json_decref);
    if (root == nullptr) {
        LOG_ERROR("on parser json");
        return -1;
    }
    const char* delay_time = text_at(root.get(), "delay_time");
    if (delay_time == nullptr) return -1;
    const char* queue_size = text_at(root.get(), "queue_size");
    if (queue_size == nullptr) return -1;
    if (GetReshdlInstance() == nullptr) {
        LOG_WARN("GetReshdlInstance failed.");
        return -1;
    }
    g_reshdlWork.SetQueueMax(number(queue_size));
    g_reshdlWork.SetMaxDelay(number(delay_time));
    return 0;
}
