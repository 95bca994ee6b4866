// The file of a recording is whole at every moment, and follows the session.
#include "recorder/recording_file.hpp"

#include "simulator/MobileDevice/scenario.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

// Windows does not open a file in the moment in which it is replaced.
#ifdef _WIN32
constexpr bool may_be_locked = true;
#else
constexpr bool may_be_locked = false;
#endif

class RecordingFile : public testing::Test {
protected:
    std::string content() const { return tests::read_file(folder / "recording"); }

    bool waits_for(std::string const & text) const {
        for (int attempt = 0; attempt < 1000; ++attempt) {
            if (content().find(text) != std::string::npos) {
                return true;
            }
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }

    tests::temporary_folder folder;
    std::string path = folder.utf8("recording");
    recorder::session session;
};

TEST_F(RecordingFile, IsThereFromTheStart) {
    recorder::recording_file const file{session, path, true};
    EXPECT_TRUE(mobile_device::load_scenario(path).devices.empty());
}

TEST_F(RecordingFile, FollowsTheSession) {
    recorder::recording_file const file{session, path, true};
    for (auto const name : {"first_function", "second_function"}) {
        session.call(name, {}, {});
        EXPECT_TRUE(waits_for(name));
    }
}

TEST_F(RecordingFile, IsWrittenWhileTheSessionGoesOn) {
    recorder::recording_file const file{session, path, true, 10ms};
    std::atomic<std::int64_t> calls = 1000; // no other number of the file
    std::jthread const tool{[&](std::stop_token const & end) {
        while (!end.stop_requested()) {
            session.call("function", recorder::make_integer(++calls), {});
            std::this_thread::sleep_for(1ms);
        }
    }};
    for (int count = 0; count < 3; ++count) {
        EXPECT_TRUE(waits_for("<integer>" + std::to_string(calls + 1) + "</integer>"));
    }
}

TEST_F(RecordingFile, PausesForHalfOfTheSecondThatItMayBeOld) {
    EXPECT_LE(2 * recorder::recording_file::usual_pause, 1s);
}

TEST_F(RecordingFile, EndsWithoutThePause) {
    {
        recorder::recording_file file{session, path, true, 24h};
        session.call("last_function", {}, {});
        std::this_thread::sleep_for(100ms); // until it pauses, most likely
        file.finish();
    }
    EXPECT_NE(content().find("last_function"), std::string::npos);
}

TEST_F(RecordingFile, HoldsWhatCameBeforeIt) {
    session.call("early_function", {}, {});
    recorder::recording_file const file{session, path, true};
    EXPECT_NE(content().find("early_function"), std::string::npos);
}

TEST_F(RecordingFile, IsFinalAtTheEnd) {
    recorder::recording_file file{session, path, true};
    session.call("last_function", {}, {});
    file.finish();
    EXPECT_NE(content().find("last_function"), std::string::npos);
    session.call("late_function", {}, {});
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(content().find("late_function"), std::string::npos);
}

TEST_F(RecordingFile, IsWholeAtEveryMoment) {
    tests::write_file(folder / "recording", "<plist><dict/></plist>");
    std::atomic<bool> done = false;
    int read = 0;
    std::thread reader{[&] {
        while (!done) {
            auto const text = content();
            EXPECT_TRUE(!text.empty() || may_be_locked);
            if (!text.empty()) {
                EXPECT_NO_THROW(mobile_device::parse_scenario(
                    {reinterpret_cast<std::uint8_t const *>(text.data()), text.size()}));
                ++read;
            }
            std::this_thread::sleep_for(1ms);
        }
    }};
    {
        recorder::recording_file file{session, path, true};
        for (int number = 0; number < 50; ++number) {
            session.call("function", recorder::make_integer(std::int64_t{number}), {});
            file.finish();
        }
    }
    done = true;
    reader.join();
    EXPECT_GT(read, 0);
    EXPECT_EQ(tests::read_file(folder / "recording.new"), "");
}

TEST_F(RecordingFile, SaysOnceThatItCannotBeWritten) {
    testing::internal::CaptureStderr();
    {
        recorder::recording_file file{session, folder.utf8("missing/recording"), true};
        file.finish();
    }
    auto const said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("the recording cannot be written"), std::string::npos);
    EXPECT_EQ(said.find('\n'), said.size() - 1);
}

} // namespace
