#include "simulator/MobileDevice/world_file.hpp"

#include "simulator/MobileDevice/files.hpp"
#include "tests/stress/share.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"

#include <atomic>
#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#ifndef _WIN32
#include <csignal>

#include <sys/wait.h>
#include <unistd.h>
#endif

using namespace mobile_device;
using namespace std::chrono_literals;

namespace {

class WorldFile : public testing::Test {
protected:
    tests::temporary_folder folder;
    std::string const path = folder.utf8("Wélt 世界.plist");

    // Begins a world of so many devices.
    void begin(std::size_t devices) {
        world fresh;
        for (std::size_t index = 0; index < devices; ++index) {
            fresh.devices.push_back({.ecid = index, .course = {{1, 0s, phase::initial}}});
        }
        world_file{path}.update([](world &) {}, fresh);
    }
};

// Makes a device take one step more.
void take_step(world & in, std::size_t device) {
    auto & taking = in.devices.at(device);
    auto const at = taking.course.back().at + 1ms;
    taking.change_from(at, {{at, phase::recovery}});
    taking.forget_before(at + 1h);
}

std::int64_t steps_of(world const & in, std::size_t device) {
    return in.devices.at(device).course.back().number;
}

std::string world_fault(std::function<void()> const & call) {
    try {
        call();
        return "";
    } catch (scenario_fault const & fault) {
        return fault.what();
    }
}

} // namespace

TEST_F(WorldFile, IsBegunOnceAndReadByOthers) {
    world_file first{path};
    world_file second{path};
    world fresh{.began = std::chrono::sys_time<std::chrono::microseconds>{42us}};
    EXPECT_EQ(first.update([](world &) {}, fresh), fresh);
    EXPECT_EQ(second.update([](world &) {}, world{}), fresh);
    EXPECT_EQ(second.read_change(), std::nullopt);
    first.update([](world & in) {
        in.devices.push_back({.ecid = 1, .course = {{1, 0s, phase::initial}}});
    });
    EXPECT_EQ(first.read_change(), std::nullopt);
    auto const seen = second.read_change();
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->devices.size(), 1U);
    EXPECT_EQ(second.read_change(), std::nullopt);
}

TEST_F(WorldFile, AChangeBackToWhatAProcessKnewIsWritten) {
    begin(1);
    world_file first{path};
    world_file second{path};
    auto const set = [](bool value) {
        return [value](world & in) { in.devices[0].auto_boot = value; };
    };
    first.update(set(false));
    second.update(set(true));
    first.update(set(false));
    EXPECT_FALSE(second.update([](world &) {}).devices[0].auto_boot);
}

TEST_F(WorldFile, AMissingOneIsAFault) {
    world_file file{path};
    EXPECT_EQ(world_fault([&] { file.update([](world &) {}); }), path + ": cannot be read");
    EXPECT_EQ(world_fault([&] { file.read_change(); }), path + ": cannot be read");
    auto const nowhere = folder.utf8("no folder/world");
    EXPECT_EQ(world_fault([&] { world_file{nowhere}.update([](world &) {}, world{}); }),
              nowhere + ": cannot be locked; is its folder there, and writable?");
}

TEST_F(WorldFile, APartOfOneIsAFaultAndStays) {
    begin(2);
    auto const whole = tests::read_file(folder / "Wélt 世界.plist");
    auto const end = whole.rfind("</plist>") + std::string{"</plist>"}.size() - 1;
    for (std::size_t size = 0; size < whole.size(); size += size + 40 < end ? 37 : 1) {
        auto const part = whole.substr(0, size);
        tests::write_file(folder / "Wélt 世界.plist", part);
        world_file file{path};
        if (size <= end) {
            auto const fault = world_fault([&] { file.update([](world &) {}, world{}); });
            EXPECT_TRUE(fault.starts_with(path + ": is not a world, and is left as it is: "))
                << size << fault;
            EXPECT_EQ(world_fault([&] { file.read_change(); }), fault);
            EXPECT_EQ(tests::read_file(folder / "Wélt 世界.plist"), part);
        }
    }
}

TEST_F(WorldFile, WhatAKilledWriterLeftDoesNotMatter) {
    begin(1);
    tests::write_file(folder / "Wélt 世界.plist.new", "<plist><dict>");
    world_file{path}.update([](world & in) { take_step(in, 0); });
    EXPECT_EQ(steps_of(world_file{path}.read_change().value(), 0), 2);
    EXPECT_FALSE(std::filesystem::exists(make_path(path + ".new")));
}

TEST_F(WorldFile, ThreadsLoseNoChangeOfEachOther) {
    constexpr std::size_t writers = 4;
    constexpr int changes = 25;
    begin(1);
    std::atomic<bool> done = false;
    std::thread reader{[&] {
        world_file file{path};
        for (std::int64_t latest = 0; !done;) {
            if (auto const seen = file.read_change()) {
                EXPECT_GT(steps_of(*seen, 0), latest);
                latest = steps_of(*seen, 0);
            }
        }
    }};
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < writers; ++index) {
        threads.emplace_back([&] {
            world_file file{path};
            for (int count = 0; count < changes; ++count) {
                file.update([](world & in) { take_step(in, 0); });
            }
        });
    }
    for (auto & each : threads) {
        each.join();
    }
    done = true;
    reader.join();
    EXPECT_EQ(steps_of(world_file{path}.read_change().value(), 0), 1 + 4 * changes);
}

#ifndef _WIN32

namespace {

// Starts a process that changes the world until it is killed.
pid_t start_writer(std::string const & path, std::size_t device) {
    auto const child = ::fork();
    if (child == 0) {
        try {
            for (world_file file{path};;) {
                file.update([device](world & in) { take_step(in, device); });
            }
        } catch (scenario_fault const & fault) {
            [[maybe_unused]] auto const written =
                ::write(STDERR_FILENO, fault.what(), std::string{fault.what()}.size());
            ::_exit(1);
        }
    }
    return child;
}

} // namespace

TEST_F(WorldFile, IsWholeWheneverAProcessIsKilled) {
    constexpr std::size_t writers = 4;
    begin(writers);
    std::minstd_rand random{std::random_device{}()};
    std::vector<pid_t> children;
    for (std::size_t index = 0; index < writers; ++index) {
        children.push_back(start_writer(path, index));
    }
    std::vector<std::int64_t> known(writers, 1);
    world_file file{path};
    for (int kills = tests::share_of(500); kills > 0; --kills) {
        std::this_thread::sleep_for(std::chrono::microseconds{random() % 20000});
        auto const victim = random() % writers;
        ::kill(children[victim], SIGKILL);
        int status = 0;
        ::waitpid(children[victim], &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status)) << "ended by itself: " << status;
        auto const seen = file.update([](world &) {});
        ASSERT_EQ(seen.devices.size(), writers);
        for (std::size_t index = 0; index < writers; ++index) {
            EXPECT_GE(steps_of(seen, index), known[index]);
            known[index] = steps_of(seen, index);
        }
        children[victim] = start_writer(path, victim);
    }
    for (auto const child : children) {
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }
    std::int64_t all = 0;
    for (auto const each : known) {
        all += each - 1;
    }
    EXPECT_GT(all, 0) << "no process has changed anything";
}

#endif
