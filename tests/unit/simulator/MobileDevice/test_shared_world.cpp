#include "simulator/MobileDevice/shared_world.hpp"

#include "simulator/MobileDevice/files.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"
#include "tests/unit/simulator/MobileDevice/fixture.hpp"

using namespace mobile_device;
using namespace property_list;
using namespace std::chrono_literals;

namespace {

// Each simulator plays the part of a process.
class SharedWorld : public SimulatedPlatform {
protected:
    tests::temporary_folder folder;
    std::string const path = folder.utf8("world");
    std::unique_ptr<simulator> other;

    // Begins the world with two processes of the same scenario; the calls are those of the first.
    void play_twice(std::string const & root) {
        play(root, path);
        other = make_simulator(root, path);
    }

    world content() { return world_file{path}.read_change().value(); }

    // Returns options that the default restore succeeds with.
    cf_owner<CFMutableDictionaryRef> with_bundle() {
        std::filesystem::create_directory(make_path(folder.utf8("bundle")));
        tests::write_file(folder / "bundle/BuildManifest.plist", "");
        auto options = make_mutable_dictionary();
        CFDictionarySetValue(options.get(), CFSTR("RestoreBundlePath"),
                             make_cfstring(folder.utf8("bundle")).get());
        return options;
    }
};

constexpr int arrives = kAMRestorableDeviceConnected;
constexpr int departs = kAMRestorableDeviceDisconnected;
constexpr int in_recovery_mode = kAMRestorableDeviceStateRecovery;
constexpr int in_restore_os = kAMRestorableDeviceStateRestoreOS;
constexpr int booted = kAMRestorableDeviceStateBootedOS;

std::string one_device(std::string const & more = "") {
    return "<dict><key>Devices</key><array><dict><key>ECID</key><string>1</string>" + more +
           "</dict></array></dict>";
}

std::string with(std::string_view key, std::string const & value) {
    return element("key", key) + value;
}

std::string reports_of(std::initializer_list<std::string> texts) {
    std::string reports;
    for (auto const & each : texts) {
        reports +=
            dictionary({{"After", integer(1)}, {"Status", dictionary({{"Status", text(each)}})}});
    }
    return with("RestoreReports", element("array", reports));
}

// Lets a process carry out a restore whose reports nobody gets.
void restore_in(simulator & process, CFDictionaryRef options = nullptr) {
    auto & subject = *process.devices()[0];
    process.add_restore(subject, options)
        .start(subject.make_object(subject.initial).get(), nullptr, nullptr);
}

world_restore lost_restore(world_time alive) {
    auto owner = this_process();
    --owner.created;
    return {owner, alive};
}

} // namespace

TEST_F(SharedWorld, ARebootIsSeenByOthersAtTheSameMoments) {
    play_twice(one_device());
    notification_recorder recorder;
    recorder.wait(10ms);
    auto const start = test_clock().now();
    other->set_auto_boot(*other->devices()[0], true);
    other->reboot(*other->devices()[0], 0.1, 0.6);
    EXPECT_EQ(recorder.wait(1s), (std::vector<notification>{{{}, 1, in_recovery_mode, arrives},
                                                            {{}, 1, in_recovery_mode, departs},
                                                            {{}, 1, booted, arrives}}));
    auto const times = recorder.times();
    ASSERT_EQ(times.size(), 3U);
    EXPECT_LE(abs(times[1] - start - 100ms), 1ms);
    EXPECT_LE(abs(times[2] - start - 600ms), 1ms);
}

TEST_F(SharedWorld, ChangesThatAreOverAreSeenWithin100Milliseconds) {
    play_twice(one_device());
    notification_recorder recorder;
    recorder.wait(10ms);
    test_clock().pass(13ms);
    auto const start = test_clock().now();
    other->reboot(*other->devices()[0], 0, 0);
    recorder.wait(1s);
    ASSERT_EQ(recorder.times().size(), 3U);
    EXPECT_LE(recorder.times().at(2) - start, 100ms);
}

TEST_F(SharedWorld, OutlivesItsProcesses) {
    play_twice(one_device());
    other->set_auto_boot(*other->devices()[0], true);
    AMRecoveryModeDeviceReboot(adopt(AMRestorableDeviceCopyRecoveryModeDevice(device(0))).get());
    other = nullptr;
    play("<dict/>"); // no process is left
    test_clock().pass(10s);
    play(one_device(), path);
    notification_recorder recorder;
    EXPECT_EQ(recorder.wait(10s), (std::vector<notification>{{{}, 1, booted, arrives}}));
    EXPECT_TRUE(content().devices.at(0).auto_boot);
}

TEST_F(SharedWorld, DoesNotGrowWithWhatHappens) {
    play_twice(one_device());
    for (int count = 0; count < 20; ++count) {
        other->reboot(*other->devices()[0], 0.1, 0.6);
        test_clock().pass(30s);
    }
    EXPECT_EQ(content().devices.at(0).course.size(), 3U); // the last, and those to come then
}

TEST_F(SharedWorld, TimeCountsFromItsBeginning) {
    auto const root =
        one_device(with("ConnectAfter", integer(5)) + with("DisconnectAfter", integer(8)));
    auto const start = test_clock().now();
    play(root, path);
    test_clock().pass(4s);
    play(root, path);
    notification_recorder early;
    early.wait(2s);
    notification_recorder late;
    early.wait(10s);
    ASSERT_EQ(early.times().size(), 2U);
    EXPECT_LE(abs(early.times()[0] - start - 5s), 1ms);
    EXPECT_LE(abs(early.times()[1] - start - 8s), 1ms);
    ASSERT_EQ(late.times().size(), 2U);
    EXPECT_LE(abs(late.times()[0] - start - 6s), 1ms);
    EXPECT_LE(abs(late.times()[1] - start - 8s), 1ms);
    notification_recorder too_late;
    EXPECT_EQ(too_late.wait(10s).size(), 0U);
    EXPECT_EQ(content().devices.at(0).at(9s), phase::unplugged);
}

TEST_F(SharedWorld, ScriptedNotificationsComeOnceInItsTime) {
    auto const root = dictionary(
        {{"Notifications", array({dictionary({{"After", integer(1)}, {"Type", integer(7)}}),
                                  dictionary({{"After", integer(3)}, {"Type", integer(8)}})})}});
    auto const start = test_clock().now();
    play(root, path);
    test_clock().pass(2s);
    notification_recorder recorder;
    EXPECT_EQ(recorder.wait(10s), (std::vector<notification>{{{}, 0, 0, 8}}));
    EXPECT_LE(abs(recorder.times().at(0) - start - 3s), 1ms);
}

TEST_F(SharedWorld, ARestoreByAnotherProcessIsSeenInEachOfItsPhases) {
    play_twice(one_device());
    notification_recorder recorder;
    recorder.wait(10ms);
    restore_in(*other, with_bundle().get());
    EXPECT_TRUE(content().devices.at(0).restore);
    EXPECT_EQ(recorder.wait(20s), (std::vector<notification>{{{}, 1, in_recovery_mode, arrives},
                                                             {{}, 1, in_recovery_mode, departs},
                                                             {{}, 1, in_restore_os, arrives},
                                                             {{}, 1, in_restore_os, departs},
                                                             {{}, 1, booted, arrives}}));
    EXPECT_FALSE(content().devices.at(0).restore);
    auto const times = recorder.times();
    ASSERT_EQ(times.size(), 5U);
    EXPECT_LE(abs(times[2] - times[1] - 500ms), 51ms);
    EXPECT_GE(times[3] - times[2], 2s);
}

TEST_F(SharedWorld, ADeviceThatDoesNotReturnStaysWhileItIsRestored) {
    play_twice(one_device(with("Returns", "<false/>")));
    notification_recorder recorder;
    recorder.wait(10ms);
    restore_in(*other, with_bundle().get());
    EXPECT_EQ(recorder.wait(20s), (std::vector<notification>{{{}, 1, in_recovery_mode, arrives}}));
    EXPECT_FALSE(content().devices.at(0).restore);
}

TEST_F(SharedWorld, ARestoreThatFailsHasEndedAndOneThatFallsSilentHasNot) {
    for (bool const fails : {true, false}) {
        std::filesystem::remove(make_path(path));
        play_twice(one_device(reports_of({"Restoring", fails ? "Failed" : "Restoring"})));
        restore_in(*other);
        test_clock().pass(1500ms);
        EXPECT_TRUE(content().devices.at(0).restore);
        test_clock().pass(30s);
        EXPECT_EQ(content().devices.at(0).restore.has_value(), !fails);
    }
}

TEST_F(SharedWorld, ARestoreWhoseProcessIsGoneEndsInRecovery) {
    auto const start = test_clock().now();
    play(one_device(with("AfterInterruption", integer(4))), path);
    notification_recorder recorder;
    recorder.wait(10ms);
    world_file{path}.update([](world & in) {
        auto & device = in.devices.at(0);
        auto const now = device.course.back().at;
        device.change_from(now + 1ms, {{now + 1ms, phase::away}, {now + 2ms, phase::restore_os}});
        device.restore = lost_restore(now);
    });
    EXPECT_EQ(recorder.wait(10s), (std::vector<notification>{{{}, 1, in_recovery_mode, arrives},
                                                             {{}, 1, in_recovery_mode, departs},
                                                             {{}, 1, in_restore_os, arrives},
                                                             {{}, 1, in_restore_os, departs},
                                                             {{}, 1, in_recovery_mode, arrives}}));
    ASSERT_EQ(recorder.times().size(), 5U);
    EXPECT_LE(abs(recorder.times().at(4) - start - 4s), 1ms);
    EXPECT_FALSE(content().devices.at(0).restore);
}

TEST_F(SharedWorld, TheTimeAfterAnInterruptionIsScaled) {
    auto const device = dictionary({{"ECID", text("1")}, {"AfterInterruption", integer(40)}});
    auto const start = test_clock().now();
    play(dictionary({{"TimeScale", real(0.1)}, {"Devices", array({device})}}), path);
    notification_recorder recorder;
    recorder.wait(10ms);
    world_file{path}.update([](world & in) {
        auto & lost = in.devices.at(0);
        lost.restore = lost_restore(lost.course.back().at);
    });
    EXPECT_EQ(recorder.wait(10s).size(), 3U);
    ASSERT_EQ(recorder.times().size(), 3U);
    EXPECT_LE(abs(recorder.times().at(1) - start - 3950ms), 1ms);
    EXPECT_LE(abs(recorder.times().at(2) - start - 4s), 1ms);
}

TEST_F(SharedWorld, ARestoreThatWasLostBeforeIsOverAtOnce) {
    play(one_device(), path);
    world_file{path}.update([](world & in) {
        auto & device = in.devices.at(0);
        device.change_from(0s, {{0s, phase::restore_os}});
        device.restore = lost_restore(0s);
    });
    play("<dict/>");
    test_clock().pass(1min);
    play(one_device(), path);
    notification_recorder recorder;
    EXPECT_EQ(recorder.wait(20s), (std::vector<notification>{{{}, 1, in_recovery_mode, arrives}}));
}

TEST_F(SharedWorld, ARestoreShowsThatItLives) {
    play_twice(one_device(reports_of({})));
    restore_in(*other);
    auto const begun = content().devices.at(0).restore.value().alive;
    test_clock().pass(10s);
    auto const alive = content().devices.at(0).restore.value().alive;
    EXPECT_GE(alive - begun, 8s);
}

TEST_F(SharedWorld, DevicesThatTheWorldDoesNotKnowAreAdded) {
    play(one_device(), path);
    test_clock().pass(1min);
    auto const both = dictionary({{"Devices", array({dictionary({{"ECID", text("1")}}),
                                                     dictionary({{"ECID", text("2")}})})}});
    play(both, path);
    EXPECT_EQ(content().devices.size(), 2U);
    play(one_device(), path);
    EXPECT_EQ(content().devices.size(), 2U);
    notification_recorder recorder;
    EXPECT_EQ(recorder.wait(1s).size(), 1U);
}

TEST_F(SharedWorld, DevicesWithTheSameEcidAreAFault) {
    auto const twice = dictionary({{"Devices", array({dictionary({{"ECID", text("1")}}),
                                                      dictionary({{"ECID", integer(1)}})})}});
    EXPECT_THROW(make_simulator(twice, path), scenario_fault);
    EXPECT_FALSE(std::filesystem::exists(make_path(path)));
    EXPECT_NO_THROW(make_simulator(twice, {}));
}

TEST_F(SharedWorld, ABrokenOneIsAFaultAndStays) {
    folder.write("world", "<plist>");
    EXPECT_THROW(make_simulator(one_device(), path), scenario_fault);
    EXPECT_EQ(tests::read_file(folder / "world"), "<plist>");
}
