// Whole runs of the tool, whose library goes on calling to the very end of the process.
#include "tests/fake_device_library/fake_device_library.hpp"
#include "tests/unit/helpers/objects.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

int tool_main(int argc, char const ** argv);

namespace {

using namespace std::chrono_literals;
using namespace tests;

constexpr std::uint64_t dfu_device = 0xD;

// What the library calls: all that the tool has given it to call.
struct library_calls {
    std::atomic<AMRestorableDeviceNotificationCallback> notify = nullptr;
    std::atomic<AMRestorableDeviceProgressCallback> report = nullptr;
    std::atomic<void *> context = nullptr;
    std::atomic<int> rounds = 0;

    void make() {
        static auto const & device =
            *new auto(make_device(dfu_device, kAMRestorableDeviceStateDFU));
        static auto const & status = *new auto(plist_dictionary(
            "<dict><key>Status</key><string>Restoring</string><key>Operation</key>"
            "<integer>13</integer><key>Progress</key><integer>42</integer></dict>"));
        if (auto const callback = notify.load()) {
            callback(device.get(), kAMRestorableDeviceConnected, context);
        }
        if (auto const callback = report.load()) {
            callback(device.get(), status.get(), context);
        }
        ++rounds;
    }

    void make_for_ever() {
        for (;;) {
            make();
            std::this_thread::sleep_for(50us);
        }
    }

    // Returns when all calls that were under way have returned and others have been made.
    void wait_for_more() const {
        for (int const enough = rounds + 20; rounds < enough;) {
            std::this_thread::yield();
        }
    }
};

library_calls & calls() {
    static auto & all = *new library_calls;
    return all;
}

// At which moments the library calls, apart from the first notification.
enum class calling { from_the_beginning, during_exit, during_static_destruction };

calling when = calling::from_the_beginning;

struct last_destroyed {
    ~last_destroyed() {
        if (when == calling::during_static_destruction && calls().context != nullptr) {
            calls().make();
        }
    }
} const destroyed_with_the_program;

void start_calling() {
    for (int i = 0; i < 2; ++i) {
        std::thread(&library_calls::make_for_ever, &calls()).detach();
    }
}

// Runs the tool, which ends the process.
void run_tool(calling moment, std::vector<char const *> arguments) {
    when = moment;
    fake_device_library().on_registration = [](AMRestorableDeviceNotificationCallback callback,
                                               void * context) {
        calls().notify = callback;
        calls().context = context;
        calls().make();
        if (when == calling::from_the_beginning) {
            start_calling();
        }
        std::atexit([] {
            if (when == calling::during_exit) {
                start_calling();
            }
            if (when != calling::during_static_destruction) {
                calls().wait_for_more();
            }
        });
    };
    fake_device_library().on_restore = [](AMRestorableDeviceProgressCallback callback, void *) {
        calls().report = callback;
    };
    arguments.insert(arguments.begin(), "qnrescue");
    int const count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    std::exit(tool_main(count, arguments.data()));
}

#ifdef QNRESCUE_UNPROTECTED

// The sanitizer finds a call that uses what is gone; the thread sanitizer may see it as a race.
bool is_as_expected(int status, int /*of_the_tool*/) {
    return status != 0;
}
constexpr auto expected_message = "Sanitizer: (heap-use-after-free|data race|SEGV)";

#else

bool is_as_expected(int status, int of_the_tool) {
    return testing::ExitedWithCode(of_the_tool)(status);
}
constexpr auto expected_message = "";

#endif

class LateCallbacks : public testing::Test {
protected:
    LateCallbacks() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    void expect_status(int status, calling moment, std::vector<char const *> const & arguments) {
        EXPECT_EXIT(
            run_tool(moment, arguments),
            [status](int found) { return is_as_expected(found, status); }, expected_message);
    }

    std::vector<char const *> const list{"--list-devices", "--detect-timeout", "0"};
};

TEST_F(LateCallbacks, AfterATimeOut) {
    expect_status(0, calling::from_the_beginning,
                  {"--restore", "x.ipsw", "--ecid", "000000000000000D", "--restore-timeout", "0"});
}

TEST_F(LateCallbacks, AfterAToolError) {
    expect_status(5, calling::from_the_beginning,
                  {"--exit-recovery", "--ecid", "000000000000000D"});
}

TEST_F(LateCallbacks, BetweenTheNotifiersEndAndTheEndOfExit) {
    expect_status(0, calling::during_exit, list);
}

TEST_F(LateCallbacks, DuringStaticDestruction) {
    expect_status(0, calling::during_static_destruction, list);
}

} // namespace
