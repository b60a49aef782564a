// The schema as the full runtime sees it.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include "retrace.pb.h"

namespace {

TEST(Schema, HasItsMessagesEnumsAndFields) {
    const google::protobuf::FileDescriptor& file = *vorn_retrace::vorn_trace_info::descriptor()->file();
    int fields = 0;
    for (int i = 0; i < file.message_type_count(); ++i) {
        fields += file.message_type(i)->field_count();
        EXPECT_EQ(file.message_type(i)->nested_type_count() + file.message_type(i)->enum_type_count(), 0);
    }
    EXPECT_EQ(std::tuple(file.message_type_count(), file.enum_type_count(), fields), std::tuple(56, 14, 505));
    EXPECT_EQ(file.package(), "vorn_retrace");
    EXPECT_EQ(file.syntax(), google::protobuf::FileDescriptor::SYNTAX_PROTO3);
    EXPECT_EQ(file.options().ByteSizeLong(), 0u);
}

TEST(Schema, KeepsItsOddNumbers) {
    const auto& pool = *google::protobuf::DescriptorPool::generated_pool();
    const std::pair<const char*, int> fields[] = {
        {"vorn_trace_info.trace_end", 20}, {"threat_alert.rule", 35},
        {"threat_rule.alert_event", 8},    {"threat_event.object_fd_info", 45},
        {"virus_info.file_path", 3},       {"virus_info.found_uuid", 21},
        {"dup_alert.malicious_key", 6},    {"threat_alert.container_init_pid", 34},
    };
    for (const auto& [name, number] : fields) {
        const auto* const field = pool.FindFieldByName(std::string("vorn_retrace.") + name);
        ASSERT_NE(field, nullptr) << name;
        EXPECT_EQ(field->number(), number) << name;
    }
    const std::pair<const char*, int> values[] = {
        {"VORN_RISK_USER_IOA", 20}, {"VORN_RISK_MAX_NUM", 23}, {"SUCCESS", 0}, {"VORN_TRACE_FD_INFO", 41}};
    for (const auto& [name, number] : values) {
        const auto* const value = pool.FindEnumValueByName(std::string("vorn_retrace.") + name);
        ASSERT_NE(value, nullptr) << name;
        EXPECT_EQ(value->number(), number) << name;
    }
}

}  // namespace
