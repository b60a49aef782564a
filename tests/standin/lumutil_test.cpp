#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "lumutil/log_tap.h"
#include "platform/zel_support.h"

TEST(Lumutil, tap_sees_whole_lines_of_every_level_until_it_is_taken_off) {
    std::string seen;
    zel_log_set_tap([](void* to, int32_t, const char* text) { *static_cast<std::string*>(to) += text; }, &seen);
    for (const int32_t level : {-1, 3, 4}) zel_log_output(level, "%5000d", level);
    zel_log_set_tap(nullptr, nullptr);
    zel_log_output(3, "late");
    EXPECT_EQ(seen, std::string(4999, ' ') + "3");
}

TEST(Lumutil, ini_reads_what_can_be_read) {
    const std::string value(3000, 'x'), path = testing::TempDir() + "lumutil_test.ini";
    std::ofstream(path) << "[a]\nk = 1\n  in=2 ; note\nbad\nk=3\nlong=" << value << "\n[b]\nk=4";
    void* ini = nullptr;
    ASSERT_EQ(zel_ini_file_load(path.c_str(), &ini), 0);
    const char* const rows[][3] = {{"a", "k", "3"}, {"a", "in", "2"}, {"a", "long", value.c_str()}, {"b", "k", "4"}};
    for (const auto& [section, key, text] : rows) EXPECT_STREQ(zel_ini_file_get(ini, section, key), text) << key;
    zel_ini_file_free(ini);
}

TEST(Lumutil, once_runs_once_and_the_others_wait_for_its_end) {
    static int runs = 0;
    static int32_t flag = 0;
    const auto ask = [] { return zel_singleton_once(&flag, [](void*) { ++runs; }, nullptr), runs; };
    std::jthread other([&] { EXPECT_EQ(ask(), 1); });
    EXPECT_EQ(ask(), 1);
}
