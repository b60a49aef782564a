// The plug-in in a program without any protobuf: it gives traces out there, and the program may exit without stopping
// it, and fork. The end-to-end tests have it beside the full runtime.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <semaphore>
#include <string>

#include "host/lib/alert.h"
#include "host/lib/libraries.h"

namespace {

// Of the staged agent folder, for good; the plug-in opens the bus under the same path.
const zelhost::Bus& bus() {
    static const auto& opened = *new zelhost::Bus{{AGENT_DIR "/reshdl/lib/liblummb.so"}};
    return opened;
}
const zelhost::Plugin& plugin() {
    static const auto& opened = *new zelhost::Plugin{{AGENT_DIR "/reshdl/bin/libzelreshdl.so"}};
    return opened;
}

// Waits until alerts are in hand in both workers and more of them in the queues; false when no chain came.
bool start_and_load() {
    static std::counting_semaphore<> heard{0};
    if (plugin().init() != 0) exit(1);
    bus().subscribe(770, lummb_sink_t{[](void*, MbFrame::IEvent*) { heard.release(); }}, nullptr);
    for (int number = 1; number <= 90; ++number) {
        const std::string text = zelhost::Alert{.number = number}.text();
        bus().publish(1536, text.data(), text.size());
    }
    return heard.try_acquire_for(std::chrono::seconds(10));
}

[[noreturn]] void exit_without_a_stop() { exit(start_and_load() ? 7 : 2); }

// Neither the child nor, after it, the parent may hang.
[[noreturn]] void exit_in_a_child() {
    if (!start_and_load()) exit(2);
    const pid_t child = fork();
    alarm(20);
    if (child == 0) exit(7);
    int status = 0;
    waitpid(child, &status, 0);
    plugin().uninit();
    exit(WIFEXITED(status) ? WEXITSTATUS(status) : 3);
}

TEST(PlainHostDeathTest, MayExitWithoutAStop) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (int round = 0; round < 20; ++round)
        EXPECT_EXIT(exit_without_a_stop(), testing::ExitedWithCode(7), "") << "round " << round;
}

TEST(PlainHostDeathTest, MayExitInAChildThatWasForkedInMidWork) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (int round = 0; round < 5; ++round)
        EXPECT_EXIT(exit_in_a_child(), testing::ExitedWithCode(7), "") << "round " << round;
}

}  // namespace

// Asked by the leak checker. Events that wait on the bus at the exit are reached through packed records, where it does
// not look.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() { return 1; }
