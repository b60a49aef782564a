// The two readers of settings: base, limits and default.
#include <gtest/gtest.h>

#include "common/common.h"
#include "support/agent_folder.h"
#include "support/log_capture.h"

namespace {

using zel_test::AgentFolder;

constexpr const char* kFile = "../config/zelreshdl.ini";

TEST(Settings, AreReadWithLimitsAndADefault) {
    const struct {
        const char* text;
        unsigned int lowest = 0, highest = 100;
        unsigned long base_0 = 77, base_10 = 77;  // the result of each reader, 77 being the default
    } rows[] = {
        {.text = "k=30", .base_0 = 30, .base_10 = 30},
        {.text = "k=0x10", .base_0 = 16, .base_10 = 0},
        {.text = "k=020", .base_0 = 16, .base_10 = 20},
        {.text = "k=9 apples", .base_0 = 9, .base_10 = 9},
        {.text = "k=apples", .base_0 = 0, .base_10 = 0},
        {.text = "k=apples", .lowest = 1},
        {.text = "k=50", .lowest = 50, .highest = 50, .base_0 = 50, .base_10 = 50},
        {.text = "k=49", .lowest = 50},
        {.text = "k=101"},
        {.text = "k=-1"},
        {.text = "k=4294967326"},                         // 30 in its low 32 bits
        {.text = "other=30", .base_0 = 0, .base_10 = 0},  // missing counts as 0 ...
        {.text = "other=30", .lowest = 1},                // ... which only a lower limit turns into the default
    };
    const std::string file = AgentFolder::get().path(kFile);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        AgentFolder::get().write(kFile, std::string("[config]\n") + row.text + "\n");
        EXPECT_EQ(CltCommon::IniGetUintExA("config", "k", 77, row.lowest, row.highest, file.c_str()), row.base_0);
        EXPECT_EQ(CltCommon::IniGetDoubleExA("config", "k", 77, row.lowest, row.highest, file.c_str()), row.base_10);
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
