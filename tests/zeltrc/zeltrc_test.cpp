// The staged trace module, loaded and unloaded as the plug-in does it, and the ledger beside it.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/zel_support.h"
#include "platform/zel_trc.h"
#include "retrace.pb.h"
#include "standin/lumutil/log_tap.h"
#include "standin/zeltrc/zeltrc_host.h"

namespace {

using namespace vorn_retrace;
namespace fs = std::filesystem;
using Library = std::unique_ptr<void, int (*)(void*)>;
constexpr const char* kCreate = "trace_event_create_by_alert";
constexpr int32_t kLater = ZEL_TRC_NOT_READY, kDropped = ZEL_TRC_DROPPED, kFailed = -0x7fffbffb, kInvalid = -0x7ff8ffa9;

Library open_library(const fs::path& path) { return {dlopen(path.c_str(), RTLD_NOW), &dlclose}; }

template <class F, class... Arguments>
auto call(const Library& library, const char* name, Arguments... arguments) {
    return reinterpret_cast<F>(dlsym(library.get(), name))(arguments...);
}

// The libraries are copied, so that the test has a settings file of its own.
class ZelTrc : public testing::Test {
protected:
    ZelTrc() {
        fs::remove_all(root_);
        fs::create_directories(root_ / "config");
        fs::copy(AGENT_DIR "/reshdl/lib", root_ / "lib");
        ledger_ = open_library(root_ / "lib/libzelcount.so");
    }
    int32_t start(const std::string& settings = "") {
        module_.reset();
        std::ofstream(root_ / "config/zeltrc.ini") << "[standin]\n" << settings;
        module_ = open_library(root_ / "lib/libzeltrc.so");
        return call<trace_event_init_t>(module_, "trace_event_init");
    }
    // The answer's code; the answer is buffer_, its bytes are data_.
    int32_t ask(const char* function, const std::string& input) {
        uint32_t size = 1;
        const int32_t code = call<trace_event_work_t>(module_, function, input.data(),
                                                      static_cast<uint32_t>(input.size()), &buffer_, &size);
        data_.assign(buffer_, size);
        return code;
    }
    int32_t release(char* buffer) { return call<trace_event_release_t>(module_, "trace_event_release", buffer); }
    zeltrc_counts counts() const {
        zeltrc_counts counts;
        call<zeltrc_get_counts_t>(ledger_, "zeltrc_get_counts", &counts);
        return counts;
    }
    const fs::path root_ = fs::path(testing::TempDir()) / ("zeltrc" + std::to_string(getpid()));
    Library ledger_{nullptr, &dlclose}, module_{nullptr, &dlclose};
    char* buffer_ = nullptr;
    std::string data_;
};

void set_process(process_vertex& process, const char* guid, uint64_t pid) {
    process.set_process_guid(guid);
    process.set_process_id(pid);
}

TEST_F(ZelTrc, MakesTheGraphOfTheAlertsEvents) {
    const struct {
        int64_t time;
        const char* guid;
        uint64_t pid;
        void (*add_object)(threat_event& event);
    } rows[] = {
        {30, "g1", 10, [](threat_event& event) { set_process(*event.mutable_object_processcreate(), "g2", 11); }},
        {20, "g2", 11, [](threat_event& event) { event.mutable_object_file_create()->set_file_path("/tmp/a"); }},
        {40, "", 11, [](threat_event& event) { event.mutable_object_net_connect(); }},  // the same without its GUID
        {10, "g1", 10, [](threat_event&) {}},
        {0, "g3", 11, [](threat_event& event) { event.mutable_object_file_create(); }},
    };
    vorn_trace_info report;
    report.mutable_threat()->set_alert_guid("a");
    report.mutable_threat()->add_alert_rule()->set_rule_id("r");
    for (const auto& row : rows) {
        threat_event& event = *report.mutable_threat()->mutable_alert_rule(0)->add_alert_event();
        event.set_op_time(row.time);
        set_process(*event.mutable_subject_process(), row.guid, row.pid);
        row.add_object(event);
    }
    std::string bytes[2];
    for (std::string& load : bytes) {
        ASSERT_EQ(start(), 0);
        ASSERT_EQ(ask(kCreate, report.SerializeAsString()), 0);
        load = data_;
        release(buffer_);
    }
    EXPECT_EQ(bytes[0], bytes[1]);
    vorn_trace_info result;
    ASSERT_TRUE(result.ParseFromString(data_));
    std::ostringstream graph;
    for (const auto& process : result.trace_event().process_list())
        graph << process.node_id() << process.process_guid() << " ";
    for (const auto& edge : result.trace_event().edge_list())
        graph << edge.edge_id() << ":" << edge.table_index_begin() << "-" << edge.table_index_end() << "@"
              << edge.time() << edge.threat_guid() << edge.rule_id() << " ";
    EXPECT_EQ(graph.str(), "1g1 2g2 5g3 1:1-2@30ar 2:2-3@20ar 3:2-4@40ar 4:5-6@0ar ");
    EXPECT_EQ(result.trace_event().file_create_list(1).node_id(), 6u);
    EXPECT_EQ(std::make_pair(result.trace_start(), result.trace_end()), std::make_pair(int64_t{10}, int64_t{40}));
}

TEST_F(ZelTrc, AnswersAsInputAndSettingsAsk) {
    const std::string alert("\x42\x03\x12\x01g"), no_text("\x0a\x01\xff");
    const struct {
        int line;
        const char* settings;
        const char* function;
        std::string input;
        std::vector<int32_t> codes;
    } rows[] = {
        {__LINE__, "not_ready_times=2\n", kCreate, alert, {kLater, kLater, 0, kLater}},
        {__LINE__, "drop_every=2\nfail_every=3\n", kCreate, alert, {0, kDropped, kFailed, kDropped, 0, kFailed}},
        {__LINE__, "fail_every=-1\nnot_ready_times=2x\ncost_ms=600001\n", kCreate, alert, {0, 0}},
        {__LINE__, "", kCreate, no_text, {kInvalid}},
        {__LINE__, "", kCreate, "", {kInvalid}},
        {__LINE__, "", "trace_event_process_completion", no_text, {kInvalid}},
        {__LINE__, "", "trace_event_expand_from_mgr", "\x0a\x09", {kInvalid}},
        {__LINE__, "", "trace_event_coordinate_dispose_trc", "{\"pid\":1}", {0}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        ASSERT_EQ(start(row.settings), 0);
        for (const int32_t code : row.codes) {
            EXPECT_EQ(ask(row.function, row.input), code);
            EXPECT_EQ(data_.empty(), code != 0);
            EXPECT_EQ(counts().waiting, code == kLater ? 1u : 0u);
            release(buffer_);
        }
        call<zeltrc_forget_alert_t>(ledger_, "zeltrc_forget_alert", "g");
        EXPECT_EQ(counts().waiting, 0u);
    }
}

TEST_F(ZelTrc, KnowsItsResultsBeyondOneLoad) {
    std::string errors;
    const auto tap = [](void* to, int32_t level, const char* text) {
        if (level == ZEL_LOG_ERROR) static_cast<std::string*>(to)->append(text);
    };
    zel_log_set_tap(tap, &errors);
    ASSERT_EQ(start("fail_every=2\npartial_result=1\n"), 0);
    ask(kCreate, "\x42\x06\x12\x04held");
    char* const held = buffer_;
    const auto explain = [](void* known, const char* buffer) { return known == buffer ? 1 : 0; };
    call<zeltrc_set_explainer_t>(ledger_, "zeltrc_set_explainer", explain, static_cast<void*>(held));
    EXPECT_EQ(ask(kCreate, "\x42\x06\x12\x04lost"), kFailed);
    const zeltrc_counts before = counts();
    ASSERT_EQ(start(), 0);
    EXPECT_EQ(counts().loads, before.loads + 1) << "the module was not really unloaded";
    EXPECT_THAT(errors, testing::AllOf(testing::HasSubstr("guid:lost"), testing::Not(testing::HasSubstr("held"))));
    EXPECT_EQ(release(held), 0);
    EXPECT_EQ(release(buffer_), 0);
    EXPECT_LT(release(held), 0) << "released twice";
    EXPECT_EQ(counts().outstanding, 0u);
    call<zeltrc_set_explainer_t>(ledger_, "zeltrc_set_explainer", nullptr, nullptr);
    zel_log_set_tap(nullptr, nullptr);
}

}  // namespace
