// Decoding while one allocation after another fails.
#include "decode/decode_state.h"
#include "decode/document.h"
#include "support/failing_memory.h"

namespace zel_test {
namespace {

const std::string kOld(40, 'o'), kNew(80, 'n');  // too long to be held or replaced without an allocation

std::string eleven(const std::string& text) { return joined(std::vector<std::string>(11, text), " ") + ' '; }

// What there is before: a better rule, a container and a selection of the document below then take its place.
void prepare() {
    ST_RULE rule;
    rule.strRuleDesc = rule.strRuleName = kOld;
    rule.nScore = 1;
    zel::decode_state().scratch = {};
    zel::decode_state().scratch.note_rule(rule);
    zel::ContainerTexts& texts = g_stContainerInfo;
    texts = {kOld, kOld, kOld, kOld, kOld, kOld, kOld, kOld, kOld, kOld, kOld};
    ProcessTreeSelector::Instance().SetSelection(1, 1, kOld);
}

std::string document() {
    std::vector<std::string> given = {R"("alert_type":2)", "\"ExtendedInfo\":" + scenario("")};
    for (const Key& key : keys_of(kContainerKeys))
        if (key.kind == 'S') given.push_back('"' + key.name + "\":\"" + kNew + '"');
    const std::string select = R"("SubjectPid":2,"SubjectCreateTime":2,"SubjectImage":")" + kNew +
                               R"(","PostOpr":[{"Type":2,"Name":["SubjectPid"]}],"Highlight":["h"])";
    const std::string with_texts = R"("score":2,"tags":["t"],"rule_desc":")" + kNew + R"(","rule_name":")" + kNew + '"';
    return object(joined(given),
                  joined({members(kRootKeys), members(kContainerKeys),
                          "\"rule\":[" + rule(with_texts, event(select) + ',' + event("")) + ']', R"("Guid":"")"}));
}

// True when the document was decoded before the allocation behind `count` others could fail.
bool decode(const std::string& text, int64_t count) {
    ST_QUEQE_NODE node;
    ST_BUF_DATA data;
    node.pData = zel::copy_bytes(text.c_str(), text.size() + 1);
    const FailingMemory memory(count);
    try {
        CEventHandle::GetJsonInfo(&node, data);
    } catch (const std::bad_alloc&) {
        EXPECT_TRUE(FailingMemory::has_failed());
    }
    FreeBufData(data);
    return !FailingMemory::has_failed();
}

TEST(Memory, WhatDecodingKeepsIsWholeWhateverAllocationFails) {
    const std::string text = document();
    bool decoded = false;
    int64_t count = 0;
    for (; !decoded; ++count) {
        prepare();
        decoded = decode(text, count);
        const zel::Scratch& scratch = zel::decode_state().scratch;
        const std::string& rule = decoded ? std::string() : scratch.nBestScore == 2 ? kNew : kOld;
        EXPECT_EQ(scratch.strBestRuleDesc, rule) << count;
        EXPECT_EQ(scratch.strBestRuleName, rule) << count;
        const std::string container = container_values(g_stContainerInfo);
        EXPECT_TRUE(container == eleven(kOld) || container == eleven(kNew)) << count << container;
        const std::string selected = ProcessTreeSelectorPeer::take();
        EXPECT_TRUE(selected == "pid 1 of 1 " + kOld || selected == "pid 2 of 2 " + kNew) << count << selected;
    }
    EXPECT_GT(count, 30);
    EXPECT_EQ(container_values(g_stContainerInfo), eleven(kNew));
    take_log();
}

}  // namespace
}  // namespace zel_test
