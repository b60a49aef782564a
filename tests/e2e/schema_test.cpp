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

}  // namespace
