// The schema as the full runtime sees it.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include "retrace.pb.h"

namespace {

TEST(Schema, HasItsMessagesEnumsAndFields) {
    const google::protobuf::FileDescriptor& file = *vorn_retrace::vorn_trace_info::descriptor()->file();
    int fields = 0;
    for (int i = 0; i < file.message_type_count(); ++i) fields += file.message_type(i)->field_count();
    EXPECT_EQ(std::tuple(file.message_type_count(), file.enum_type_count(), fields), std::tuple(56, 14, 505));
    EXPECT_EQ(file.syntax(), google::protobuf::FileDescriptor::SYNTAX_PROTO3);
    EXPECT_EQ(file.options().ByteSizeLong(), 0u);
}

TEST(Schema, KeepsItsOddNumbers) {
    const std::pair<const char*, int> fields[] = {
        {"threat_rule.alert_event", 8}, {"threat_event.object_fd_info", 45},     {"virus_info.file_path", 3},
        {"virus_info.found_uuid", 21},  {"threat_alert.container_init_pid", 34}, {"dup_alert.malicious_key", 6},
    };
    for (const auto& [name, number] : fields) {
        const auto* const field =
            google::protobuf::DescriptorPool::generated_pool()->FindFieldByName(std::string("vorn_retrace.") + name);
        ASSERT_NE(field, nullptr) << name;
        EXPECT_EQ(field->number(), number) << name;
    }
    using namespace vorn_retrace;
    EXPECT_EQ(std::tuple(+VORN_RISK_FILEMON, +VORN_RISK_USER_IOA, +SUCCESS, +VORN_TRACE_FD_INFO),
              std::tuple(15, 20, 0, 41));
}

}  // namespace
