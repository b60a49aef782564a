#include <gtest/gtest.h>

#include "decode/document.h"

namespace {

using zel_test::Decoded;
using zel_test::document;
using zel_test::Json;

const std::string kGuid = "01234567-89ab-cdef-0123-456789abcdef";
const std::string kInRule = "|E GetRuleInfoEx error.|E GetRuleInfo failed!";
const std::string kInEvent = "|E GetRawEventInfoEx error.|E GetRawEventInfo failed!" + kInRule;
const std::string kInSet = "|E GetRawEventInfoEx error.|E GetProcessSet failed!|E GetExtenedInfo failed!\n";

Json rules(std::initializer_list<const char*> changes) {
    std::string list;
    for (const char* change : changes) {
        Json rule(zel_test::kRule);
        const Json keys(change);
        for (const cJSON* key = keys.node()->child; key != nullptr; key = key->next)
            rule.set(key->string, Json("[]").set("", nullptr).node() ? std::unique_ptr<char, void (*)(void*)>(cJSON_PrintUnformatted(key), cJSON_free).get() : "");
        list += (list.empty() ? "" : ",") + rule.text();
    }
    return document("2").set("rule", ("[" + list + "]").c_str());
}

// Leaves no best rule and no times behind.
void clear_scratch() { EXPECT_TRUE(Decoded(document().text()).ok); }

}  // namespace
