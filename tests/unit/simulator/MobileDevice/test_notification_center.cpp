// The order and the thread of notifications, and what unregistering promises.
#include "platform/cf_strings.hpp"
#include "tests/unit/simulator/MobileDevice/fixture.hpp"

#include <atomic>
#include <map>
#include <set>
#include <thread>

using namespace property_list;
using namespace std::chrono_literals;

namespace {

class Notifications : public SimulatedPlatform {};

constexpr int connected = kAMRestorableDeviceConnected;
constexpr int disconnected = kAMRestorableDeviceDisconnected;

} // namespace

TEST_F(Notifications, TimeScaleZeroDeliversAtOnceInTheOrderOfTheTimes) {
    play(dictionary(
        {{"TimeScale", integer(0)},
         {"Devices", array({dictionary({{"ECID", text("1")},
                                        {"ConnectAfter", integer(3000)},
                                        {"DisconnectAfter", integer(4000)}}),
                            dictionary({{"ECID", text("2")}, {"State", text("DFU")}}),
                            dictionary({{"ECID", text("3")}, {"ConnectAfter", integer(3000)}})})},
         {"Notifications",
          array({dictionary({{"After", integer(3500)}, {"ECID", text("2")}, {"Type", integer(9)}}),
                 dictionary({{"After", real(0.5)}, {"Type", integer(-4)}}),
                 dictionary({{"ECID", text("3")}, {"Type", integer(1)}})})}}));
    notification_recorder recorder;
    std::vector<notification> const expected = {
        {{}, 2, 1, connected}, {{}, 3, 2, 1}, {{}, 0, 0, -4},           {{}, 1, 2, connected},
        {{}, 3, 2, connected}, {{}, 2, 1, 9}, {{}, 1, 2, disconnected},
    };
    EXPECT_EQ(recorder.wait_for(7), expected);
}

TEST_F(Notifications, EqualTimesKeepTheOrderOfTheScenario) {
    for (auto const & scale : {real(0.01), integer(0)}) {
        play(dictionary(
            {{"TimeScale", scale},
             {"Devices", array({dictionary({{"ECID", text("3")}, {"ConnectAfter", integer(5)}}),
                                dictionary({{"ECID", text("1")},
                                            {"ConnectAfter", integer(5)},
                                            {"DisconnectAfter", integer(5)}}),
                                dictionary({{"ECID", text("2")}, {"ConnectAfter", integer(5)}})})},
             {"Notifications",
              array({dictionary({{"After", integer(5)}, {"ECID", text("2")}, {"Type", integer(9)}}),
                     dictionary({{"After", integer(5)}, {"ECID", text("1")}, {"Type", integer(8)}}),
                     dictionary({{"ECID", text("2")}, {"Type", integer(7)}})})}}));
        notification_recorder recorder;
        std::vector<notification> const expected = {
            {{}, 2, 2, 7},         {{}, 3, 2, connected},
            {{}, 1, 2, connected}, {{}, 1, 2, disconnected},
            {{}, 2, 2, connected}, {{}, 2, 2, 9},
            {{}, 1, 2, 8},
        };
        EXPECT_EQ(recorder.wait_for(7), expected);
    }
}

TEST_F(Notifications, AtTimeScaleZeroEachRegistrationSeesTheWholeOrder) {
    play(dictionary({{"TimeScale", integer(0)},
                     {"Devices", array({dictionary({{"ECID", text("1")},
                                                    {"ConnectAfter", integer(3)},
                                                    {"DisconnectAfter", integer(5)}}),
                                        dictionary({{"ECID", text("2")},
                                                    {"DisconnectAfter", integer(4)}})})}}));
    notification_recorder first;
    notification_recorder second;
    std::vector<notification> const expected = {{{}, 2, 2, connected},
                                                {{}, 1, 2, connected},
                                                {{}, 2, 2, disconnected},
                                                {{}, 1, 2, disconnected}};
    EXPECT_EQ(first.wait_for(4), expected);
    EXPECT_EQ(second.wait_for(4), expected);
}

TEST_F(Notifications, WhatIsDueAtOnceIsNotMixed) {
    auto & simulator = play(dictionary({{"TimeScale", integer(0)},
                                        {"Devices", array({dictionary({{"ECID", text("1")}}),
                                                           dictionary({{"ECID", text("2")}})})}}));
    notification_recorder recorder;
    recorder.wait_for(2);
    for (auto const & each : simulator.devices()) { // two reboots at the same moment of the clock
        simulator.center().reappear(*each, 0.1, each->booted_os, 0.6);
    }
    std::vector<notification> const expected = {
        {{}, 1, 2, connected}, {{}, 2, 2, connected},    {{}, 1, 2, disconnected},
        {{}, 1, 4, connected}, {{}, 2, 2, disconnected}, {{}, 2, 4, connected},
    };
    EXPECT_EQ(recorder.wait_for(6), expected);
}

TEST_F(Notifications, ANullDeviceIsDelivered) {
    play(dictionary({{"Notifications", array({dictionary({{"Type", integer(0)}})})}}));
    notification_recorder recorder;
    auto const received = recorder.wait_for(1);
    ASSERT_EQ(received.size(), 1U);
    EXPECT_EQ(received[0].object.get(), nullptr);
}

TEST_F(Notifications, DelaysCountFromRegistrationAndAreScaled) {
    play(dictionary({{"TimeScale", real(0.1)},
                     {"Devices", array({dictionary({{"ECID", text("1")},
                                                    {"ConnectAfter", integer(3)},
                                                    {"DisconnectAfter", integer(6)}})})}}));
    test_clock().pass(100ms);
    auto const start = test_clock().now();
    notification_recorder recorder;
    ASSERT_EQ(recorder.wait_for(2).size(), 2U);
    auto const times = recorder.times();
    EXPECT_EQ(times[0] - start, 300ms);
    EXPECT_EQ(times[1] - start, 600ms);
}

TEST_F(Notifications, ADelayWithoutEndDoesNoHarm) {
    play(dictionary({{"Devices", array({dictionary({{"ECID", text("1")},
                                                    {"ConnectAfter", "<real>1e300</real>"}}),
                                        dictionary({{"ECID", text("2")}})})}}));
    notification_recorder recorder;
    EXPECT_EQ(recorder.wait_for(1).size(), 1U);
    EXPECT_EQ(recorder.wait(24h * 365).size(), 1U);
}

namespace {

// The thread of each notification, by the name that the scenario gives it as its type.
struct observed_threads {
    std::mutex mutex;
    std::multimap<int, std::thread::id> by_type;
};

} // namespace

TEST_F(Notifications, ComeOnTheThreadsThatAreNamed) {
    auto const named = [](int after, int type, int thread) {
        return dictionary(
            {{"After", integer(after)}, {"Type", integer(type)}, {"Thread", integer(thread)}});
    };
    play(dictionary({{"Devices", array({dictionary({{"ECID", text("1")},
                                                    {"ConnectThread", integer(7)},
                                                    {"DisconnectAfter", integer(4)},
                                                    {"DisconnectThread", integer(8)}})})},
                     {"Notifications", array({named(1, 7, 7), named(2, 8, 8), named(3, 9, 0),
                                              named(5, 7, 7), named(6, 9, 0)})}}));
    observed_threads seen;
    auto const id = AMRestorableDeviceRegisterForNotifications(
        [](AMRestorableDeviceRef, AMRestorableDeviceNotificationType type, void * context) {
            auto & into = *static_cast<observed_threads *>(context);
            std::lock_guard const lock{into.mutex};
            into.by_type.emplace(type, std::this_thread::get_id());
        },
        &seen, nullptr);
    test_clock().pass(10s);
    AMRestorableDeviceUnregisterForNotifications(id);
    ASSERT_EQ(seen.by_type.size(), 7U);
    std::map<int, std::set<std::thread::id>> threads;
    std::set<std::thread::id> all;
    for (auto const & [type, thread] : seen.by_type) {
        auto const name = type == connected ? 7 : type == disconnected ? 8 : type;
        threads[name].insert(thread);
        all.insert(thread);
    }
    for (auto const & [name, same] : threads) {
        EXPECT_EQ(same.size(), 1U) << name;
    }
    EXPECT_EQ(all.size(), 3U);
    EXPECT_FALSE(all.contains(std::this_thread::get_id()));
}

TEST_F(Notifications, MayUnregisterOnANamedThread) {
    play(dictionary(
        {{"Notifications", array({dictionary({{"Type", integer(7)}, {"Thread", integer(1)}}),
                                  dictionary({{"Type", integer(8)}})})}}));
    static std::atomic<int> count;
    static std::atomic<int> id;
    count = 0;
    id = AMRestorableDeviceRegisterForNotifications(
        [](AMRestorableDeviceRef, AMRestorableDeviceNotificationType, void *) {
            ++count;
            AMRestorableDeviceUnregisterForNotifications(id);
        },
        nullptr, nullptr);
    test_clock().pass(1s);
    EXPECT_EQ(count, 1);
}

TEST_F(Notifications, ComeOnOneThreadThatIsNotTheRegisteringOne) {
    play(dictionary({{"Devices", array({dictionary({{"ECID", text("1")}}),
                                        dictionary({{"ECID", text("2")}})})}}));
    struct observed {
        std::mutex mutex;
        std::set<std::thread::id> threads;
        std::atomic<int> count = 0;
    } seen;
    auto const id = AMRestorableDeviceRegisterForNotifications(
        [](AMRestorableDeviceRef, AMRestorableDeviceNotificationType, void * context) {
            auto & into = *static_cast<observed *>(context);
            std::lock_guard const lock{into.mutex};
            into.threads.insert(std::this_thread::get_id());
            ++into.count;
        },
        &seen, nullptr);
    test_clock().pass_until([&] { return seen.count == 2; });
    AMRestorableDeviceUnregisterForNotifications(id);
    EXPECT_EQ(seen.threads.size(), 1U);
    EXPECT_FALSE(seen.threads.contains(std::this_thread::get_id()));
}

TEST_F(Notifications, UnregisteringWaitsForTheOneUnderWay) {
    play(dictionary({{"Devices", array({dictionary({{"ECID", text("1")}}),
                                        dictionary({{"ECID", text("2")}})})}}));
    struct progress {
        std::atomic<bool> begun = false;
        std::atomic<int> done = 0;
        std::atomic<bool> unregistered = false;
    } state;
    auto const id = AMRestorableDeviceRegisterForNotifications(
        [](AMRestorableDeviceRef, AMRestorableDeviceNotificationType, void * context) {
            auto & into = *static_cast<progress *>(context);
            into.begun = true;
            while (!test_clock().is_awaited() && !into.unregistered) {
                std::this_thread::yield();
            }
            ++into.done;
        },
        &state, nullptr);
    while (!state.begun) {
        std::this_thread::yield();
    }
    EXPECT_EQ(AMRestorableDeviceUnregisterForNotifications(id), 0);
    EXPECT_EQ(state.done, 1);
    state.unregistered = true;
    test_clock().pass(1h);
    EXPECT_EQ(state.done, 1);
}

TEST_F(Notifications, ACallbackMayUnregisterItself) {
    play(dictionary({{"Devices", array({dictionary({{"ECID", text("1")}}),
                                        dictionary({{"ECID", text("2")}})})}}));
    static std::atomic<int> id;
    static std::atomic<int> calls;
    id = 0;
    calls = 0;
    id = AMRestorableDeviceRegisterForNotifications(
        [](AMRestorableDeviceRef, AMRestorableDeviceNotificationType, void *) {
            while (id == 0) {
                std::this_thread::yield();
            }
            EXPECT_EQ(AMRestorableDeviceUnregisterForNotifications(id), 0);
            ++calls;
        },
        nullptr, nullptr);
    test_clock().pass(1h);
    EXPECT_EQ(calls, 1);
}

TEST_F(Notifications, AnUnknownClientCannotBeUnregistered) {
    play("<dict/>");
    EXPECT_NE(AMRestorableDeviceUnregisterForNotifications(1), 0);
    notification_recorder recorder;
    EXPECT_GT(recorder.id, 0);
    EXPECT_NE(AMRestorableDeviceUnregisterForNotifications(recorder.id + 1), 0);
}

TEST_F(Notifications, EachRegistrationSeesTheDevicesFromItsOwnStart) {
    play(dictionary({{"Devices", array({dictionary({{"ECID", text("1")}})})}}));
    notification_recorder first;
    EXPECT_EQ(first.wait_for(1).size(), 1U);
    notification_recorder second;
    EXPECT_EQ(second.wait_for(1).size(), 1U);
    EXPECT_NE(first.id, second.id);
    EXPECT_EQ(first.received().size(), 1U);
}

TEST_F(Notifications, RegistrationFailsAsScripted) {
    play(dictionary({{"Failures", dictionary({{"RegisterForNotifications",
                                               dictionary({{"Domain", text("AMRestoreErrorDomain")},
                                                           {"Code", integer(0x100000001)},
                                                           {"Description", text("no bus")}})}})}}));
    auto const ignore = [](AMRestorableDeviceRef, AMRestorableDeviceNotificationType, void *) {};
    EXPECT_LE(AMRestorableDeviceRegisterForNotifications(ignore, nullptr, nullptr), 0);
    CFErrorRef error = nullptr;
    EXPECT_LE(AMRestorableDeviceRegisterForNotifications(ignore, nullptr, &error), 0);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(CFErrorGetCode(error), 0x100000001);
    auto const owned = mobile_device::adopt(error);
    auto const description = mobile_device::adopt(CFErrorCopyDescription(error));
    EXPECT_EQ(qnrescue::to_utf8(description.get()), "no bus");
}

TEST_F(Notifications, RegistrationLeavesNoErrorWhereItSucceeds) {
    play("<dict/>");
    int former = 0;
    auto error = reinterpret_cast<CFErrorRef>(&former);
    auto const id = AMRestorableDeviceRegisterForNotifications(
        [](AMRestorableDeviceRef, AMRestorableDeviceNotificationType, void *) {}, nullptr, &error);
    EXPECT_GT(id, 0);
    EXPECT_EQ(error, nullptr);
    AMRestorableDeviceUnregisterForNotifications(id);
}

TEST_F(Notifications, SubscribingForDevicesSucceedsAndDeliversNothing) {
    play(dictionary({{"Devices", array({dictionary({{"ECID", text("1")}})})}}));
    AMDeviceNotificationRef subscription = nullptr;
    EXPECT_EQ(AMDeviceNotificationSubscribe(
                  [](AMDeviceNotificationCallbackInfo *, void *) { FAIL() << "delivered"; }, 0, 1,
                  nullptr, &subscription),
              0);
    EXPECT_NE(subscription, nullptr);
    EXPECT_EQ(AMDeviceNotificationUnsubscribe(subscription), 0);
}

TEST_F(Notifications, ADeviceThatDoesNotConnectIsShownByNotificationsAlone) {
    auto const device = [](int state, bool connects) {
        return dictionary(
            {{"ECID", text("1")}, {"State", integer(state)}, {"Connects", boolean(connects)}});
    };
    play(dictionary(
        {{"Devices", array({device(1, false), device(3, true)})},
         {"Notifications",
          array({dictionary({{"After", integer(1)}, {"Device", integer(0)}, {"Type", integer(7)}}),
                 dictionary(
                     {{"After", integer(2)}, {"Device", integer(1)}, {"Type", integer(8)}})})}}));
    notification_recorder recorder;
    std::vector<notification> const expected = {
        {{}, 1, 3, connected}, {{}, 1, 1, 7}, {{}, 1, 3, 8}};
    EXPECT_EQ(recorder.wait(5s), expected);
}
