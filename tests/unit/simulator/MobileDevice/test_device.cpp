// What the functions for devices return, and what a reboot does.
#include "platform/cf_strings.hpp"
#include "tests/unit/simulator/MobileDevice/fixture.hpp"

using namespace mobile_device;
using namespace property_list;
using namespace std::chrono_literals;

namespace {

class Devices : public SimulatedPlatform {
protected:
    using recovery_mode_device = cf_owner<CFTypeRef>;

    static AMRecoveryModeDeviceRef copy_recovery_mode_device(AMRestorableDeviceRef from,
                                                             recovery_mode_device & owner) {
        auto const copy = AMRestorableDeviceCopyRecoveryModeDevice(from);
        owner = adopt<CFTypeRef>(copy);
        return copy;
    }
};

std::string one_device(std::initializer_list<std::pair<std::string_view, std::string>> entries) {
    return dictionary({{"TimeScale", integer(0)}, {"Devices", array({dictionary(entries)})}});
}

} // namespace

TEST_F(Devices, AnswerWhatTheScenarioSays) {
    play(one_device({{"ECID", text("ABC")},
                     {"State", integer(77)},
                     {"ProductID", integer(0x11281)},
                     {"BoardID", integer(2)},
                     {"ChipID", integer(3)},
                     {"ProductType", integer(4)},
                     {"FusingInfo", integer(5)},
                     {"LocationID", integer(-1)},
                     {"SerialNumber", text("SN")},
                     {"ProductString", text("Gerät")}}));
    auto const object = device(0);
    EXPECT_EQ(AMRestorableDeviceGetECID(object), 0xABCU);
    EXPECT_EQ(static_cast<int>(AMRestorableDeviceGetState(object)), 77);
    EXPECT_EQ(AMRestorableDeviceGetProductID(object), 0x1281);
    EXPECT_EQ(AMRestorableDeviceGetBoardID(object), 2U);
    EXPECT_EQ(AMRestorableDeviceGetChipID(object), 3U);
    EXPECT_EQ(AMRestorableDeviceGetProductType(object), 4U);
    EXPECT_EQ(AMRestorableDeviceGetFusingInfo(object), 5U);
    EXPECT_EQ(AMRestorableDeviceGetLocationID(object), 0xFFFFFFFFU);
    auto const serial = adopt(AMRestorableDeviceCopySerialNumber(object));
    auto const product = adopt(AMRestorableDeviceCopyProductString(object));
    EXPECT_EQ(qnrescue::to_utf8(serial.get()), "SN");
    EXPECT_EQ(qnrescue::to_utf8(product.get()), "Gerät");
}

TEST_F(Devices, AbsentStringsAreNull) {
    play(one_device({{"ECID", text("1")}}));
    EXPECT_EQ(AMRestorableDeviceCopySerialNumber(device(0)), nullptr);
    EXPECT_EQ(AMRestorableDeviceCopyProductString(device(0)), nullptr);
}

TEST_F(Devices, ANullDeviceHasNoValues) {
    play("<dict/>");
    EXPECT_EQ(AMRestorableDeviceGetECID(nullptr), 0U);
    EXPECT_EQ(AMRestorableDeviceGetState(nullptr), 0);
    EXPECT_EQ(AMRestorableDeviceGetProductID(nullptr), 0);
    EXPECT_EQ(AMRestorableDeviceCopySerialNumber(nullptr), nullptr);
    EXPECT_EQ(AMRestorableDeviceCopyRecoveryModeDevice(nullptr), nullptr);
    EXPECT_NE(AMRecoveryModeDeviceSetAutoBoot(nullptr, true), kAMRSuccess);
    EXPECT_NE(AMRecoveryModeDeviceReboot(nullptr), kAMRSuccess);
}

TEST_F(Devices, AreCoreFoundationObjects) {
    play(one_device({{"ECID", text("1")}}));
    auto const object = device(0);
    auto const count = CFGetRetainCount(object);
    EXPECT_EQ(CFRetain(object), object);
    EXPECT_EQ(CFGetRetainCount(object), count + 1);
    CFRelease(object);
    EXPECT_EQ(CFGetRetainCount(object), count);
    EXPECT_TRUE(CFEqual(object, object));
}

TEST_F(Devices, RecoveryModeDevicesBelongToTheCaller) {
    play(one_device({{"ECID", text("1")}}));
    recovery_mode_device owner;
    auto const copy = copy_recovery_mode_device(device(0), owner);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(CFGetRetainCount(copy), 2); // the caller's and the device's own
}

TEST_F(Devices, WithoutARecoveryModeDeviceTheCopyIsNull) {
    play(dictionary({{"Devices", array({dictionary({{"ECID", text("1")}, {"State", text("DFU")}}),
                                        dictionary({{"ECID", text("2")},
                                                    {"RecoveryModeDevice", boolean(false)}})})}}));
    EXPECT_EQ(AMRestorableDeviceCopyRecoveryModeDevice(device(0)), nullptr);
    EXPECT_EQ(AMRestorableDeviceCopyRecoveryModeDevice(device(1)), nullptr);
}

TEST_F(Devices, RebootedWithAutoBootReappearBooted) {
    play(one_device({{"ECID", text("1")}}));
    notification_recorder recorder;
    auto const before = recorder.wait_for(1).at(0).object;
    recovery_mode_device owner;
    auto const recovery = copy_recovery_mode_device(before.get(), owner);
    EXPECT_EQ(AMRecoveryModeDeviceSetAutoBoot(recovery, true), kAMRSuccess);
    EXPECT_EQ(AMRecoveryModeDeviceReboot(recovery), kAMRSuccess);
    std::vector<notification> const expected = {{{}, 1, 2, 0}, {{}, 1, 2, 1}, {{}, 1, 4, 0}};
    auto const received = recorder.wait_for(3);
    EXPECT_EQ(received, expected);
    EXPECT_EQ(AMRestorableDeviceCopyRecoveryModeDevice(received.at(2).object.get()), nullptr);
    EXPECT_EQ(AMRestorableDeviceGetState(before.get()),
              2); // a reference keeps the state of its time
}

TEST_F(Devices, RebootedWithoutAutoBootReappearInRecovery) {
    play(one_device({{"ECID", text("1")}}));
    notification_recorder recorder;
    recovery_mode_device owner;
    auto const recovery = copy_recovery_mode_device(recorder.wait_for(1).at(0).object.get(), owner);
    AMRecoveryModeDeviceSetAutoBoot(recovery, true);
    AMRecoveryModeDeviceSetAutoBoot(recovery, false);
    AMRecoveryModeDeviceReboot(recovery);
    std::vector<notification> const expected = {{{}, 1, 2, 0}, {{}, 1, 2, 1}, {{}, 1, 2, 0}};
    auto const received = recorder.wait_for(3);
    EXPECT_EQ(received, expected);
    recovery_mode_device again;
    EXPECT_NE(copy_recovery_mode_device(received.at(2).object.get(), again), nullptr);
}

TEST_F(Devices, RecoveryModeErrorsAreReturnedAndNothingHappens) {
    play(one_device(
        {{"ECID", text("1")}, {"SetAutoBootError", integer(8)}, {"RebootError", integer(2005)}}));
    notification_recorder recorder;
    recovery_mode_device owner;
    auto const recovery = copy_recovery_mode_device(recorder.wait_for(1).at(0).object.get(), owner);
    EXPECT_EQ(static_cast<int>(AMRecoveryModeDeviceSetAutoBoot(recovery, true)), 8);
    EXPECT_EQ(static_cast<int>(AMRecoveryModeDeviceReboot(recovery)), 2005);
    EXPECT_EQ(recorder.wait(1h).size(), 1U);
}

TEST_F(Devices, TakenAwayDoNotReappear) {
    play(dictionary(
        {{"TimeScale", real(0.3)},
         {"Devices", array({dictionary({{"ECID", text("1")}, {"DisconnectAfter", real(0.3)}})})}}));
    notification_recorder recorder;
    recovery_mode_device owner;
    auto const recovery = copy_recovery_mode_device(recorder.wait_for(1).at(0).object.get(), owner);
    recorder.wait_for(2);
    AMRecoveryModeDeviceReboot(recovery);
    EXPECT_EQ(recorder.wait(1h).size(), 2U);
}

TEST_F(Devices, RegisteringAgainShowsThemAsTheyAreNow) {
    play(one_device({{"ECID", text("1")}}));
    {
        notification_recorder recorder;
        recovery_mode_device owner;
        auto const recovery =
            copy_recovery_mode_device(recorder.wait_for(1).at(0).object.get(), owner);
        AMRecoveryModeDeviceSetAutoBoot(recovery, true);
        AMRecoveryModeDeviceReboot(recovery);
        recorder.wait_for(3);
    }
    notification_recorder recorder;
    EXPECT_EQ(recorder.wait_for(1).at(0).state, 4);
}

// --- The life of a device's object

TEST_F(Devices, AreHeldWhileTheyAreAttachedAndNoLonger) {
    play(dictionary(
        {{"TimeScale", real(0.1)},
         {"Devices", array({dictionary({{"ECID", text("1")}, {"DisconnectAfter", integer(3)}}),
                            dictionary({{"ECID", text("2")}, {"ConnectAfter", integer(4)}})})}}));
    notification_recorder recorder;
    auto const object = recorder.wait_for(1).at(0).object.get();
    EXPECT_EQ(CFGetRetainCount(object), 2); // the recorder's and the simulator's own
    ASSERT_EQ(recorder.wait_for(3).at(1).object.get(), object);
    EXPECT_EQ(CFGetRetainCount(object), 2); // both are the recorder's
    auto const other = recorder.wait_for(3).at(2).object.get();
    EXPECT_EQ(CFGetRetainCount(other), 2);
}

TEST_F(Devices, AreHeldAsLongAsANotificationOfTheirs) {
    play(dictionary(
        {{"Devices", array({dictionary({{"ECID", text("1")}, {"ConnectAfter", integer(1000)}})})},
         {"Notifications", array({dictionary({{"ECID", text("1")}, {"Type", integer(0)}}),
                                  dictionary({{"Type", integer(0)}})})}}));
    notification_recorder recorder;
    auto const received = recorder.wait_for(2);
    EXPECT_EQ(CFGetRetainCount(received.at(0).object.get()), 1); // the recorder's
}

TEST_F(Devices, ArriveWithAnObjectOfTheirOwnEachTime) {
    play(one_device({{"ECID", text("1")}}));
    notification_recorder recorder;
    recovery_mode_device owner;
    AMRecoveryModeDeviceReboot(
        copy_recovery_mode_device(recorder.wait_for(1).at(0).object.get(), owner));
    auto const received = recorder.wait_for(3);
    EXPECT_EQ(received.at(0).object.get(), received.at(1).object.get());
    EXPECT_NE(received.at(0).object.get(), received.at(2).object.get());
}

TEST_F(Devices, KeepTheirRecoveryModeDeviceAndNotTheOtherWayRound) {
    play(one_device({{"ECID", text("1")}}));
    recovery_mode_device owner;
    auto & scripted = *simulator::instance().devices().at(0);
    auto const recovery =
        copy_recovery_mode_device(scripted.make_object(scripted.initial).get(), owner);
    EXPECT_EQ(CFGetRetainCount(recovery), 1);
    EXPECT_EQ(AMRecoveryModeDeviceSetAutoBoot(recovery, true), kAMRSuccess);
}

TEST_F(Devices, UsedAfterTheirLastReleaseEndTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    play(one_device({{"ECID", text("1")}}));
    auto & scripted = *simulator::instance().devices().at(0);
    auto object = scripted.make_object(scripted.initial);
    auto const gone = object.get();
    object = {};
    EXPECT_DEATH(AMRestorableDeviceGetState(gone),
                 "^MobileDevice: AMRestorableDeviceGetState: the device has been released");
    EXPECT_DEATH(AMRestorableDeviceCopySerialNumber(gone),
                 "^MobileDevice: AMRestorableDeviceCopySerialNumber: the device has been released");
    EXPECT_DEATH(AMRestorableDeviceRestore(gone, nullptr, nullptr, nullptr),
                 "^MobileDevice: AMRestorableDeviceRestore: the device has been released");
}

TEST_F(Devices, RecoveryModeDevicesUsedAfterTheirLastReleaseEndTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    play(one_device({{"ECID", text("1")}}));
    auto & scripted = *simulator::instance().devices().at(0);
    auto object = scripted.make_object(scripted.initial);
    recovery_mode_device owner;
    auto const recovery = copy_recovery_mode_device(object.get(), owner);
    owner = {};
    EXPECT_EQ(AMRecoveryModeDeviceSetAutoBoot(recovery, true), kAMRSuccess); // the object's own
    object = {};
    EXPECT_DEATH(AMRecoveryModeDeviceSetAutoBoot(recovery, true),
                 "^MobileDevice: AMRecoveryModeDeviceSetAutoBoot: the device has been released");
    EXPECT_DEATH(AMRecoveryModeDeviceReboot(recovery),
                 "^MobileDevice: AMRecoveryModeDeviceReboot: the device has been released");
}

TEST_F(Devices, AnswersMayChangeFromCallToCall) {
    play(one_device(
        {{"ECID", text("1")},
         {"SerialNumber", text("always")},
         {"Answers", dictionary({{"State", array({text("Recovery"), integer(9)})},
                                 {"ChipID", array({integer(1), integer(2), integer(3)})},
                                 {"ProductString",
                                  array({dictionary({{"$type", text("null")}}), text("late")})},
                                 {"RecoveryModeDevice", array({boolean(false), boolean(true)})},
                                 {"SetAutoBootError", array({integer(10), integer(0)})},
                                 {"RebootError", array({integer(-1)})}})}}));
    auto const object = device(0);
    for (int const state : {2, 9, 9}) {
        EXPECT_EQ(static_cast<int>(AMRestorableDeviceGetState(object)), state);
    }
    for (unsigned const chip : {1U, 2U, 3U, 3U}) {
        EXPECT_EQ(AMRestorableDeviceGetChipID(object), chip);
    }
    EXPECT_EQ(AMRestorableDeviceCopyProductString(object), nullptr);
    EXPECT_EQ(qnrescue::to_utf8(adopt(AMRestorableDeviceCopyProductString(object)).get()), "late");
    EXPECT_EQ(qnrescue::to_utf8(adopt(AMRestorableDeviceCopySerialNumber(object)).get()), "always");
    EXPECT_EQ(AMRestorableDeviceCopyRecoveryModeDevice(object), nullptr);
    recovery_mode_device owner;
    auto const recovery = copy_recovery_mode_device(object, owner);
    ASSERT_NE(recovery, nullptr);
    EXPECT_EQ(static_cast<int>(AMRecoveryModeDeviceSetAutoBoot(recovery, true)), 10);
    EXPECT_EQ(AMRecoveryModeDeviceSetAutoBoot(recovery, true), kAMRSuccess);
    EXPECT_EQ(static_cast<int>(AMRecoveryModeDeviceReboot(recovery)), -1);
}

TEST_F(Devices, ADeviceThatDoesNotReturnStaysAfterAReboot) {
    play(one_device({{"ECID", text("1")}, {"Returns", boolean(false)}}));
    notification_recorder recorder;
    ASSERT_EQ(recorder.wait_for(1).size(), 1U);
    recovery_mode_device owner;
    auto const recovery = copy_recovery_mode_device(device(0), owner);
    EXPECT_EQ(AMRecoveryModeDeviceReboot(recovery), kAMRSuccess);
    EXPECT_EQ(recorder.wait(10s).size(), 1U);
}
