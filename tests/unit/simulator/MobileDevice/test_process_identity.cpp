#include "simulator/MobileDevice/process_identity.hpp"

#include <gtest/gtest.h>

#ifndef _WIN32
#include <csignal>

#include <sys/wait.h>
#include <unistd.h>
#endif

using namespace mobile_device;

TEST(ProcessIdentity, TheCallingProcessIsRunning) {
    EXPECT_EQ(this_process(), this_process());
    EXPECT_TRUE(is_running(this_process()));
}

TEST(ProcessIdentity, AnEarlierProcessWithTheSameIdIsNotRunning) {
    auto earlier = this_process();
    --earlier.created;
    EXPECT_FALSE(is_running(earlier));
}

TEST(ProcessIdentity, AnIdThatNoProcessHasIsNotRunning) {
    EXPECT_FALSE(is_running({0x7FFFFFF0, this_process().created}));
}

#ifndef _WIN32

TEST(ProcessIdentity, AKilledProcessIsNotRunningBeforeItIsWaitedForEither) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    auto const child = ::fork();
    if (child == 0) {
        auto const self = this_process();
        [[maybe_unused]] auto const written = ::write(ends[1], &self, sizeof self);
        ::pause();
        ::_exit(0);
    }
    process_identity other;
    ASSERT_EQ(::read(ends[0], &other, sizeof other), static_cast<ssize_t>(sizeof other));
    EXPECT_EQ(other.id, child);
    EXPECT_NE(other, this_process());
    EXPECT_TRUE(is_running(other));
    ::kill(child, SIGKILL);
    siginfo_t ended{};
    ::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT);
    EXPECT_FALSE(is_running(other));
    ::waitpid(child, nullptr, 0);
    EXPECT_FALSE(is_running(other));
    ::close(ends[0]);
    ::close(ends[1]);
}

#endif
