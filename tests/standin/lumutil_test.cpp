#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "lumutil/log_tap.h"
#include "platform/zel_support.h"

namespace {

TEST(Lumutil, tap_sees_whole_lines_of_every_level_until_it_is_taken_off) {
    std::string seen;
    zel_log_set_tap([](void* to, int32_t, const char* text) { *static_cast<std::string*>(to) += text; }, &seen);
    const std::string long_text(5000, 'x');
    for (const int32_t level : {-1, 3, 4}) zel_log_output(level, "%s", long_text.c_str());
    zel_log_set_tap(nullptr, nullptr);
    zel_log_output(3, "late");
    EXPECT_EQ(seen, long_text);
}

TEST(Lumutil, ini_reads_what_can_be_read) {
    const std::string value(3000, 'x'), path = testing::TempDir() + "lumutil_test.ini";
    std::ofstream(path) << "[a]\nkey = 1 ; note\n  indented=2\nbad\nkey=3\nempty=\nlong=" << value << "\n[b]\nkey=4";
    void* ini = nullptr;
    ASSERT_EQ(zel_ini_file_load(path.c_str(), &ini), 0);
    const std::tuple<int, const char*, const char*, const char*> rows[] = {
        {__LINE__, "a", "key", "3"},  {__LINE__, "a", "indented", "2"}, {__LINE__, "a", "long", value.c_str()},
        {__LINE__, "a", "empty", ""}, {__LINE__, "b", "key", "4"},      {__LINE__, "b", "Key", nullptr}};
    for (const auto& [line, section, key, text] : rows) EXPECT_STREQ(zel_ini_file_get(ini, section, key), text) << line;
    zel_ini_file_free(ini);
    EXPECT_LT(zel_ini_file_load((path + ".none").c_str(), &ini), 0);
}

TEST(Lumutil, once_runs_once_and_the_others_wait_for_its_end) {
    static int runs = 0;
    static int32_t flag = 0;
    const auto ask = [] { zel_singleton_once(&flag, [](void*) { ++runs; }, nullptr), EXPECT_EQ(runs, 1); };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(ask);
    for (auto& thread : threads) thread.join();
}

TEST(Lumutil, paths_are_put_together_and_cut) {
    const std::string here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const auto in_container = [](const char* path, char* to, uint32_t size) {
        return get_agent_path(path, 4, 7, to, size);
    };
    const std::tuple<int, decltype(&zel_dirutils_path_transform), const char*, uint32_t, int32_t, std::string> rows[] =
        {{__LINE__, zel_dirutils_path_transform, "@/../x", 4097, 0, here + "/../x"},
         {__LINE__, zel_dirutils_path_transform, "@x/y", 4, -1, "@x/"},
         {__LINE__, in_container, "/etcetera", 16, 0, "/proc/7/root/et"}};
    char out[4097];
    for (const auto& [line, call, path, size, result, text] : rows)
        EXPECT_EQ(std::pair(call(path, out, size), std::string(out)), std::pair(result, text)) << line;
}

}  // namespace
