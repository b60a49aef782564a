#include <gtest/gtest.h>

#include "common/common.h"
#include "support/agent_folder.h"
#include "support/log_capture.h"

namespace {

using zel_test::AgentFolder;

constexpr const char* kFile = "../config/zelreshdl.ini";

TEST(Settings, AreReadWithLimitsAndADefault) {
    const struct {
        int line;
        const char* text;
        unsigned int lowest, highest;
        unsigned long base_0, base_10;
    } rows[] = {
        {__LINE__, "k=30", 0, 100, 30, 30},         {__LINE__, "k=0x10", 0, 100, 16, 0},
        {__LINE__, "k=020", 0, 100, 16, 20},        {__LINE__, "k=9 apples", 0, 100, 9, 9},
        {__LINE__, "k=apples", 0, 100, 0, 0},       {__LINE__, "k=apples", 1, 100, 77, 77},
        {__LINE__, "k=50", 50, 50, 50, 50},         {__LINE__, "k=49", 50, 100, 77, 77},
        {__LINE__, "k=101", 50, 100, 77, 77},       {__LINE__, "k=-1", 0, 100, 77, 77},
        {__LINE__, "k=4294967326", 0, 100, 77, 77},  // 30 in its low 32 bits
        {__LINE__, "other=30", 0, 100, 0, 0},        // missing counts as 0 ...
        {__LINE__, "other=30", 1, 100, 77, 77},      // ... which only a lower limit turns into the default
    };
    const std::string file = AgentFolder::get().path(kFile);
    for (const auto& row : rows) {
        AgentFolder::get().write(kFile, std::string("[config]\n") + row.text + "\n");
        EXPECT_EQ(CltCommon::IniGetUintExA("config", "k", 77, row.lowest, row.highest, file.c_str()), row.base_0)
            << "line " << row.line;
        EXPECT_EQ(CltCommon::IniGetDoubleExA("config", "k", 77, row.lowest, row.highest, file.c_str()), row.base_10)
            << "line " << row.line;
    }
    AgentFolder::get().remove(kFile);
    zel_test::LogCapture::get().take();
    EXPECT_EQ(CltCommon::IniGetUintExA("config", "k", 77, 0, 100, file.c_str()), 0u);
    EXPECT_EQ(CltCommon::IniGetDoubleExA("config", "k", 77, 1, 100, file.c_str()), 77u);
    EXPECT_EQ(zel_test::LogCapture::get().take_text(), "W ini_file_load failed!\nW ini_file_load failed!\n");
}

TEST(Settings, WithLimitsThatMakeNoSenseEndTheProcess) {
    EXPECT_DEATH(CltCommon::IniGetUintExA("s", nullptr, 1, 0, 1, "f"), "`pszSection && pszKey && pszFilename'");
    EXPECT_DEATH(CltCommon::IniGetUintExA("s", "k", 0, 0, 1, "f"), "`uiDefault > 0 && uiMaxLimit > 0'");
    EXPECT_DEATH(CltCommon::IniGetUintExA("s", "k", 1, 2, 1, "f"), "`uiMaxLimit >= uiMinLimit'");
    EXPECT_DEATH(CltCommon::IniGetDoubleExA("s", "k", 1, 0, 0, "f"),
                 "`dDefault > 0 && dMaxLimit > 0 && dMinLimit >= 0'");
}

}  // namespace
