#include "plugin/zelreshdl_report.h"

#include <jansson.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "common/guard.h"
#include "common/log.h"
#include "common/memory.h"
#include "common/statistics.h"

namespace {

constexpr size_t kEncodeAny = 512;

using Json = std::unique_ptr<json_t, decltype(&json_decref)>;

Json new_object() { return Json(json_object(), &json_decref); }

// False when there is no memory: a report that lacks a figure must not set that figure to zero.
bool set(json_t* object, const char* key, uint64_t value) {
    return json_object_set_new(object, key, json_integer(static_cast<json_int_t>(value))) == 0;
}

bool set_summary(json_t* summary) {
    return std::ranges::all_of(kStatistics, [&](const StatisticsRow& row) {
        return set(summary, row.key, value_of(g_statistics.*row.counter));
    });
}

bool set_details(json_t* details, const TraceCost& cost) {
    const uint64_t successes = value_of(cost.successCount);
    if (successes == 0) return true;
    const uint64_t sum = value_of(cost.traceCost);
    return set(details, "avgCost", sum / successes) && set(details, "traceCost", sum) &&
           set(details, "firstSuccessCount", value_of(cost.firstSuccessCount)) &&
           set(details, "successCount", successes) && set(details, "maxCost", value_of(cost.maxCost));
}

int write_report(char* buffer, uint32_t size) {
    LOG_INFO("zelreshdlBpFunc start.");
    if (buffer == nullptr || size == 0) return 0;
    const std::string text = getZelreshdlDataInfo();
    if (text.size() >= size) {
        LOG_INFO("Error: Buffer size is too small for the result.");
        return 0;
    }
    memset(buffer, 0, size);
    memcpy(buffer, text.data(), text.size());
    g_reportTraceCost.reset();
    g_statistics.reset();
    LOG_INFO("getZelreshdlDataInfo:%s", text.c_str());
    return 1;
}

}  // namespace

std::string getZelreshdlDataInfo() {
    const Json root = new_object();
    Json summary = new_object();
    Json details = new_object();
    if (root == nullptr || summary == nullptr || details == nullptr || !set_summary(summary.get()) ||
        !set_details(details.get(), g_reportTraceCost) ||
        json_object_set_new(root.get(), "summary", summary.release()) != 0 ||
        json_object_set_new(root.get(), "details", details.release()) != 0)
        throw std::bad_alloc();
    const zel::MallocBuffer dump(json_dumps(root.get(), kEncodeAny));
    if (dump == nullptr) throw std::bad_alloc();
    return std::string("\"BP_ZELRESHDL\":") + dump.get();
}

int zelreshdlBpFunc(char* buffer, uint32_t size) {
    int written = 0;
    zel::guarded("report", [&] { written = write_report(buffer, size); });
    return written;
}

int zeltrcBpFunc(char*, uint32_t) {
    if (value_of(g_reportTraceCost.maxCost) > value_of(g_liveTraceCost.maxCost)) return 1;
    g_reportTraceCost.take_over(g_liveTraceCost);
    g_liveTraceCost.reset();
    return 1;
}
