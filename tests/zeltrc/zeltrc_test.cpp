// The staged trace module, loaded and unloaded as the plug-in does it, and the ledger that it brings.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/zel_trc.h"
#include "retrace.pb.h"
#include "standin/zeltrc/zeltrc_host.h"

namespace {

using namespace vorn_retrace;
namespace fs = std::filesystem;
constexpr const char* kCreate = "trace_event_create_by_alert";
constexpr int32_t kLater = ZEL_TRC_NOT_READY, kDropped = ZEL_TRC_DROPPED, kFailed = -0x7fffbffb, kInvalid = -0x7ff8ffa9;

// An agent folder of the test's own, whose settings it writes.
class ZelTrc : public testing::Test {
protected:
    ZelTrc() { fs::copy(AGENT_DIR, root_, fs::copy_options::recursive); }
    ~ZelTrc() override {
        dlclose(module_);
        fs::remove_all(root_);
    }

    // A function of the module, or of the ledger, which the module needs.
    template <class F>
    F function(const char* name) const {
        return reinterpret_cast<F>(dlsym(module_, name));
    }
    int32_t start(const std::string& settings = "") {
        if (module_ != nullptr) dlclose(module_);
        std::ofstream(root_ / "reshdl/config/zeltrc.ini") << "[standin]\n" << settings;
        module_ = dlopen((root_ / "reshdl/lib/libzeltrc.so").c_str(), RTLD_NOW);
        return function<trace_event_init_t>("trace_event_init")();
    }
    // The answer's code; its bytes are data_.
    int32_t ask(const char* name, const std::string& input) {
        char* buffer = nullptr;
        uint32_t size = 1;
        const int32_t code = function<trace_event_work_t>(name)(input.data(), uint32_t(input.size()), &buffer, &size);
        data_.assign(buffer, size);
        function<trace_event_release_t>("trace_event_release")(buffer);
        return code;
    }
    const fs::path root_ = fs::path(testing::TempDir()) / ("zeltrc" + std::to_string(getpid()));
    void* module_ = nullptr;
    std::string data_;
};

TEST_F(ZelTrc, MakesTheGraphOfTheAlertsEvents) {
    vorn_trace_info report;
    report.mutable_threat()->set_alert_guid("a");
    threat_rule& rule = *report.mutable_threat()->add_alert_rule();
    rule.set_rule_id("r");
    const auto event = [&rule](int64_t time, const char* guid, uint64_t pid) -> threat_event& {
        threat_event& added = *rule.add_alert_event();
        added.set_op_time(time);
        added.mutable_subject_process()->set_process_guid(guid);
        added.mutable_subject_process()->set_process_id(pid);
        return added;
    };
    event(30, "g1", 10).mutable_object_processcreate()->set_process_guid("g2");
    event(20, "g2", 11).mutable_object_file_create();
    event(40, "", 11).mutable_object_net_connect();  // the same process without its GUID
    event(10, "g1", 10);
    event(0, "g3", 11).mutable_object_file_create();
    EXPECT_EQ(start() + ask(kCreate, report.SerializeAsString()), 0);
    ASSERT_TRUE(report.ParseFromString(data_));
    const vorn_trace_event& chain = report.trace_event();
    std::ostringstream graph;
    graph << "from " << report.trace_start() << " to " << report.trace_end();
    for (const auto& at : chain.process_list()) graph << "\nprocess " << at.node_id() << " " << at.process_guid();
    for (const auto& file : chain.file_create_list()) graph << "\nfile " << file.node_id();
    for (const auto& e : chain.edge_list())
        graph << "\nedge " << e.edge_id() << " from " << e.table_index_begin() << " to " << e.table_index_end()
              << " at " << e.time() << " alert " << e.threat_guid() << " rule " << e.rule_id();
    EXPECT_EQ(graph.str(), R"(from 10 to 40
process 1 g1
process 2 g2
process 5 g3
file 3
file 6
edge 1 from 1 to 2 at 30 alert a rule r
edge 2 from 2 to 3 at 20 alert a rule r
edge 3 from 2 to 4 at 40 alert a rule r
edge 4 from 5 to 6 at 0 alert a rule r)");
}

TEST_F(ZelTrc, AnswersAsInputAndSettingsAsk) {
    const std::string report = "\x42\x03\x12\x01g", no_utf8 = "\x0a\x01\xff";
    const std::tuple<const char*, const char*, std::string, std::vector<int32_t>> rows[] = {
        {"not_ready_times=2", kCreate, report, {kLater, kLater, 0, kLater}},
        {"drop_every=2\nfail_every=3", kCreate, report, {0, kDropped, kFailed, kDropped, 0, kFailed}},
        {"fail_every=-1\nnot_ready_times=2x\ncost_ms=600001", kCreate, report, {0, 0}},  // no such numbers
        {"", kCreate, no_utf8, {kInvalid}},
        {"", "trace_event_coordinate_dispose_trc", "{}", {0}},
    };
    for (const auto& [settings, name, input, codes] : rows) {
        SCOPED_TRACE(settings);
        ASSERT_EQ(start(settings), 0);
        for (const int32_t code : codes) {
            EXPECT_EQ(ask(name, input), code);
            EXPECT_EQ(data_.empty(), code != 0);
            zeltrc_counts counts;
            function<zeltrc_get_counts_t>("zeltrc_get_counts")(&counts);
            EXPECT_EQ(counts.waiting, code == kLater ? 1u : 0u);
            EXPECT_EQ(counts.outstanding, 0u);
        }
    }
}

}  // namespace
