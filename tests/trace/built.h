// Builds messages and shows them as text.
#pragma once

#include <gmock/gmock.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/show.h"
#include "trace/getprotobuf.h"

namespace zel_test {

struct Built {
    std::string shown;  // empty after a failure
    std::string lines;  // of the log, without debug lines and the one about the agent id "me"
    int nProcessCount = 0;
    int nRiskLevel = 0;
};

inline const char* agent_id = "me";

inline Built build(const std::function<uint64_t(Built&, zel::MallocBuffer&)>& builder) {
    agent_id == nullptr ? unsetenv("agentid") : setenv("agentid", agent_id, 1);
    LogCapture::get().take();
    Built built;
    zel::MallocBuffer buffer(static_cast<char*>(calloc(1, 1)));
    const char* const before = buffer.get();
    const uint64_t size = builder(built, buffer);
    EXPECT_EQ(size == 0, buffer.get() == before);
    if (size != 0) built.shown = show({buffer.get(), size});
    built.lines = LogCapture::get().take_text(ZEL_LOG_INFO);
    const std::string usual = "I get cwpp agentid[me]\n";
    if (const size_t at = built.lines.find(usual); at != built.lines.npos) built.lines.erase(at, usual.size());
    return built;
}
inline Built build(ST_BUF_DATA& data, bool repeated = false, uint32_t id = event_id::ioa_alert) {
    return build([&](Built& built, zel::MallocBuffer& buffer) {
        return CGetProtobuf::GetComProtobuf(data, repeated, buffer, built.nProcessCount, built.nRiskLevel, id);
    });
}

// A text that is refused, and the lines about it.
inline std::string bad_text(size_t number) { return "\x01" + std::to_string(number); }
inline std::string refused(const std::string& text) {
    return "I [ds]str: " + text + " not Ascii\nI [ds]str: " + text + " not utf-8\n";
}
// What is logged behind them, by all who give up.
inline const std::string kAlertFails = "E GetThreatAlertInfo failed!\n";
inline const std::string kEventFails = "E SetSubjectInfo failed!\nE Set event info failed\n" + kAlertFails;

}  // namespace zel_test
