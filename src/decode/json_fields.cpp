// Looking keys up and converting numbers. What a failure logs is decided here alone.
#include "decode/json_fields.h"

#include <cstdlib>
#include <limits>

#include "common/log.h"
#include "decode/observer.h"

namespace zel {
namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;

}  // namespace

const cJSON* find_required(const JsonObject& object, const Key& key, std::source_location where) {
    const cJSON* value = object.find(key);
    if (value == nullptr) {
        LOG_ERROR_AT(where, "get json value error.");
        observe::missing(object.node(), key.name);
    }
    return value;
}

const cJSON* find_typed(const JsonObject& object, const Key& key, int type, Need need, Words words,
                        std::source_location where) {
    const cJSON* value = need == Need::required ? find_required(object, key, where) : object.find(key);
    if (value != nullptr && value->type == type) return value;
    switch (need) {
        case Need::required:
            if (value == nullptr) break;  // find_required has reported it
            observe::mistyped(value, type);
            if (words == Words::not_type) {
                LOG_ERROR_AT(where, "%s is not 0x%08x.", key.name, static_cast<unsigned>(type));
            } else {
                LOG_ERROR_AT(where, "%s is not string.", key.name);
            }
            break;
        case Need::optional:
            if (value == nullptr) {
                LOG_DEBUG_AT(where, "get json value error.");
            } else {
                LOG_DEBUG_AT(where, "%s is not string.", key.name);
            }
            break;
        case Need::warned: LOG_WARN_AT(where, "get json value error."); break;
        case Need::silent: break;
    }
    return nullptr;
}

// A cast of a number outside the range has no defined result, so the range is tested first.
int64_t truncate_signed(double number) {
    if (number >= -kTwoTo63 && number < kTwoTo63) return static_cast<int64_t>(number);
    return std::numeric_limits<int64_t>::min();
}

uint64_t truncate_unsigned(double number) {
    if (number < kTwoTo63) return static_cast<uint64_t>(truncate_signed(number));
    return number < 2 * kTwoTo63 ? static_cast<uint64_t>(number) : 0;
}

uint64_t parse_decimal(const char* text) { return strtoull(text, nullptr, 10); }

}  // namespace zel
