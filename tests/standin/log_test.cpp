// The stand-in logger: what becomes of control characters, and a fork while a line is written.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <semaphore>
#include <sstream>
#include <string>
#include <thread>

#include "lumutil/log_tap.h"
#include "platform/zel_support.h"

namespace {

// The logger opens its file at the first line of the program, so all tests of it share one.
const std::string& log_file() {
    static const std::string path = [] {
        std::string name = (std::filesystem::temp_directory_path() / "zel-log-XXXXXX").string();
        close(mkstemp(name.data()));
        setenv("ZEL_LOG_FILE", name.c_str(), 1);
        return name;
    }();
    return path;
}

// What the file holds, without the time stamp of its first line; the file is empty then.
std::string take_file() {
    std::ostringstream text;
    text << std::ifstream(log_file()).rdbuf();
    std::filesystem::resize_file(log_file(), 0);
    return text.str().substr(std::string_view("2000-01-01 00:00:00.000 ").size());
}

class Log : public testing::Test {
protected:
    Log() {
        log_file();
        zel_log_set_tap([](void* lines, int32_t, const char* text) { *static_cast<std::string*>(lines) += text; },
                        &tapped);
    }
    ~Log() override {
        zel_log_set_tap(nullptr, nullptr);
        std::filesystem::resize_file(log_file(), 0);
    }

    std::string tapped;
};

TEST_F(Log, EscapesControlCharactersOfArguments) {
    const std::string long_text(5000, 'x');
    const std::pair<std::string, std::string> rows[] = {
        {"plain", "plain"},
        {"", ""},
        {"a\nb\rc", "a\\nb\\rc"},
        {"\n", "\\n"},
        {"\x1b[2K\x1b[31m", "\\x1b[2K\\x1b[31m"},
        {"\x01\x08\x1f\x7f", "\\x01\\x08\\x1f\\x7f"},
        {"tab\tstays", "tab\tstays"},
        {"\\n is two characters", "\\n is two characters"},
        {"\xc2\x80|\xc2\x9b|\xc2\x9f|\xc2\xa0", "\\u0080|\\u009b|\\u009f|\xc2\xa0"},
        {"\xc3\x9b \xe2\x82\xac", "\xc3\x9b \xe2\x82\xac"},  // a letter and a sign with the same bytes in them
        {"\xff\xfe\x80 cut off \xc2", "\xff\xfe\x80 cut off \xc2"},
        {long_text, long_text},
        {long_text + "\n" + long_text, long_text + "\\n" + long_text},
        {std::string(3000, '\n'),
         [] {
             std::string text;
             for (int i = 0; i < 3000; ++i) text += "\\n";
             return text;
         }()},
    };
    for (const auto& [text, shown] : rows) {
        errno = EDOM;
        zel_log_output(ZEL_LOG_ERROR, "[PID]\tguid:%s.", text.c_str());
        EXPECT_EQ(errno, EDOM);
        EXPECT_EQ(tapped, "[PID]\tguid:" + shown + ".");
        EXPECT_EQ(take_file(), "[PID]\tguid:" + shown + ".\n");
        tapped.clear();
    }
}

TEST_F(Log, LeavesTheControlCharactersOfTheFormat) {
    zel_log_output(ZEL_LOG_ERROR, "failed!\n");
    EXPECT_EQ(tapped, "failed!\n");
    tapped.clear();
    zel_log_output(ZEL_LOG_ERROR, "data:\r\n %s.%d\n", "a\r\nb?", 7);
    EXPECT_EQ(tapped, "data:\r\n a\\r\\nb?.7\n");
}

// The fork begins while another thread is in the tap, and so in the middle of a line.
TEST_F(Log, WritesInAChildThatWasForkedWhileALineWasWritten) {
    struct Gate {
        std::counting_semaphore<> entered{0}, go_on{0};
    } gate;
    zel_log_set_tap(
        [](void* context, int32_t, const char*) {
            auto& held = *static_cast<Gate*>(context);
            held.entered.release();
            held.go_on.acquire();
        },
        &gate);
    std::thread writer([] { zel_log_output(ZEL_LOG_ERROR, "from the parent"); });
    gate.entered.acquire();
    std::thread opener([&] { gate.go_on.release(2); });
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);  // a child that waits for ever ends by the signal
        zel_log_output(ZEL_LOG_ERROR, "from the child");
        _exit(7);
    }
    int status = 0;
    waitpid(child, &status, 0);
    writer.join();
    opener.join();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
}

}  // namespace
