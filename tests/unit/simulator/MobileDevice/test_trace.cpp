// The line that each call leaves in the trace.
#include "tests/unit/helpers/environment.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"
#include "tests/unit/simulator/MobileDevice/fixture.hpp"

#include <boost/filesystem/operations.hpp>

#include <thread>

using namespace mobile_device;
using namespace property_list;
using namespace std::chrono_literals;

namespace {

class Trace : public SimulatedPlatform {
protected:
    Trace() {
        tests::set_environment("MOBILEDEVICE_SIMULATOR_TRACE", folder.utf8("trace é記.txt"));
    }
    ~Trace() override { tests::set_environment("MOBILEDEVICE_SIMULATOR_TRACE", ""); }

    std::vector<std::string> lines() const { return tests::read_lines(folder / "trace é記.txt"); }

    tests::temporary_folder folder{"MOBILEDEVICE_TEST_FOLDER"};
};

void ignore_notification(AMRestorableDeviceRef, AMRestorableDeviceNotificationType, void *) {}

std::string two_devices() {
    return dictionary(
        {{"TimeScale", integer(0)},
         {"Devices", array({dictionary({{"ECID", text("abcdef")},
                                        {"ProductID", integer(4737)},
                                        {"SerialNumber", text("S \"1\"")},
                                        {"ProductString", text("two\nlines")},
                                        {"RebootError", integer(-5)},
                                        {"RestoreReports", array({})}}),
                            dictionary({{"ECID", text("2")}, {"State", text("DFU")}})})}});
}

} // namespace

TEST_F(Trace, EveryCallHasItsLine) {
    play(two_devices());
    char context = 0;
    AMDeviceNotificationRef subscription = nullptr;
    AMDeviceNotificationSubscribe(nullptr, 0, 1, nullptr, &subscription);
    AMDeviceNotificationSubscribe(nullptr, 7, 2, &context, &subscription);
    AMDeviceNotificationUnsubscribe(subscription);
    AMRestoreEnableFileLogging(folder.utf8("x.log").c_str());
    AMRestoreEnableFileLogging(nullptr);
    CFRelease(AMRestoreCreateDefaultOptions(kCFAllocatorDefault));
    AMRestorableDeviceGetState(device(0));
    AMRestorableDeviceGetECID(device(0));
    AMRestorableDeviceGetProductID(device(0));
    AMRestorableDeviceGetBoardID(device(0));
    AMRestorableDeviceGetChipID(device(0));
    AMRestorableDeviceGetProductType(device(0));
    AMRestorableDeviceGetFusingInfo(device(0));
    AMRestorableDeviceGetLocationID(nullptr);
    CFRelease(AMRestorableDeviceCopySerialNumber(device(0)));
    CFRelease(AMRestorableDeviceCopyProductString(device(0)));
    AMRestorableDeviceCopyProductString(device(1));
    AMRestorableDeviceCopyRecoveryModeDevice(device(1));
    auto const recovery = AMRestorableDeviceCopyRecoveryModeDevice(device(0));
    AMRecoveryModeDeviceSetAutoBoot(recovery, true);
    AMRecoveryModeDeviceSetAutoBoot(recovery, false);
    AMRecoveryModeDeviceReboot(recovery);
    CFRelease(recovery);
    AMRestorableDeviceRestore(device(0), nullptr, nullptr, nullptr);
    AMRestorableDeviceRestore(device(0), nullptr, nullptr, &context);
    AMRestorableDeviceUnregisterForNotifications(99);
    std::vector<std::string> const expected = {
        "AMDeviceNotificationSubscribe minimumInterfaceSpeed=0 connectionType=1 context=null -> 0",
        "AMDeviceNotificationSubscribe minimumInterfaceSpeed=7 connectionType=2 context=set -> 0",
        "AMDeviceNotificationUnsubscribe -> 0",
        "AMRestoreEnableFileLogging path=\"" + folder.utf8("x.log") + "\" -> 0",
        "AMRestoreEnableFileLogging path=null -> 1",
        "AMRestoreCreateDefaultOptions -> set",
        "AMRestorableDeviceGetState device=0000000000ABCDEF -> 2",
        "AMRestorableDeviceGetECID device=0000000000ABCDEF -> 0000000000ABCDEF",
        "AMRestorableDeviceGetProductID device=0000000000ABCDEF -> 4737",
        "AMRestorableDeviceGetBoardID device=0000000000ABCDEF -> 0",
        "AMRestorableDeviceGetChipID device=0000000000ABCDEF -> 0",
        "AMRestorableDeviceGetProductType device=0000000000ABCDEF -> 0",
        "AMRestorableDeviceGetFusingInfo device=0000000000ABCDEF -> 0",
        "AMRestorableDeviceGetLocationID device=null -> 0",
        "AMRestorableDeviceCopySerialNumber device=0000000000ABCDEF -> \"S \"1\"\"",
        "AMRestorableDeviceCopyProductString device=0000000000ABCDEF -> \"two\\x0Alines\"",
        "AMRestorableDeviceCopyProductString device=0000000000000002 -> null",
        "AMRestorableDeviceCopyRecoveryModeDevice device=0000000000000002 -> null",
        "AMRestorableDeviceCopyRecoveryModeDevice device=0000000000ABCDEF -> 0000000000ABCDEF",
        "AMRecoveryModeDeviceSetAutoBoot device=0000000000ABCDEF autoBoot=true -> 0",
        "AMRecoveryModeDeviceSetAutoBoot device=0000000000ABCDEF autoBoot=false -> 0",
        "AMRecoveryModeDeviceReboot device=0000000000ABCDEF -> -5",
        "AMRestorableDeviceRestore device=0000000000ABCDEF context=null -> void",
        "AMRestorableDeviceRestore device=0000000000ABCDEF context=set -> void",
        "AMRestorableDeviceUnregisterForNotifications clientID=99 -> 1",
    };
    EXPECT_EQ(lines(), expected);
}

TEST_F(Trace, FailuresHaveTheirLines) {
    play(dictionary(
        {{"Failures", dictionary({{"RegisterForNotifications",
                                   dictionary({{"Domain", text("d")}, {"Code", integer(5)}})},
                                  {"EnableFileLogging", integer(13)},
                                  {"CreateDefaultOptions", boolean(true)}})}}));
    AMRestorableDeviceRegisterForNotifications(ignore_notification, nullptr, nullptr);
    AMRestoreEnableFileLogging("x");
    AMRestoreCreateDefaultOptions(kCFAllocatorDefault);
    std::vector<std::string> const expected = {
        "AMRestorableDeviceRegisterForNotifications context=null -> 0",
        "AMRestoreEnableFileLogging path=\"x\" -> 13",
        "AMRestoreCreateDefaultOptions -> null",
    };
    EXPECT_EQ(lines(), expected);
}

TEST_F(Trace, RegisteringComesBeforeTheCallsOfItsNotifications) {
    for (int round = 0; round < 20; ++round) {
        QN::filesystem::remove(folder / "trace é記.txt");
        play(two_devices());
        int id = 0;
        {
            notification_recorder recorder;
            id = recorder.id;
            recorder.wait_for(2);
        }
        std::vector<std::string> const expected = {
            "AMRestorableDeviceRegisterForNotifications context=set -> " + std::to_string(id),
            "AMRestorableDeviceGetECID device=0000000000ABCDEF -> 0000000000ABCDEF",
            "AMRestorableDeviceGetState device=0000000000ABCDEF -> 2",
            "AMRestorableDeviceGetECID device=0000000000000002 -> 0000000000000002",
            "AMRestorableDeviceGetState device=0000000000000002 -> 1",
            "AMRestorableDeviceUnregisterForNotifications clientID=" + std::to_string(id) + " -> 0",
        };
        ASSERT_EQ(lines(), expected);
        simulator::replace(nullptr);
    }
}

TEST_F(Trace, GrowsOverSeveralRuns) {
    folder.write("trace é記.txt", "earlier\n");
    play("<dict/>");
    AMRestorableDeviceGetState(nullptr);
    EXPECT_EQ(lines(),
              (std::vector<std::string>{"earlier", "AMRestorableDeviceGetState device=null -> 0"}));
}

TEST_F(Trace, HoldsTheOptionsOfARestoreAsAPropertyList) {
    play(two_devices());
    auto const options = make_mutable_dictionary();
    CFDictionarySetValue(options.get(), CFSTR("RestoreBundlePath"), make_cfstring("ü.ipsw").get());
    AMRestorableDeviceRestore(device(0), options.get(), nullptr, nullptr);
    auto const written = tests::read_file(folder / "trace é記.txt.options.plist");
    EXPECT_TRUE(written.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>")) << written;
    EXPECT_NE(written.find("<dict>\n\t<key>RestoreBundlePath</key>\n\t<string>ü.ipsw</string>\n"
                           "</dict>\n</plist>\n"),
              std::string::npos)
        << written;
}

TEST_F(Trace, OptionsOfAnEarlierRunAreRemoved) {
    folder.write("trace é記.txt.options.plist", "earlier");
    play(two_devices());
    EXPECT_FALSE(QN::filesystem::exists(folder / "trace é記.txt.options.plist"));
}

TEST_F(Trace, NothingIsWrittenAfterItsEnd) {
    auto & simulator = play(two_devices());
    simulator.end(20s);
    AMRestorableDeviceRestore(device(0), make_mutable_dictionary().get(), nullptr, nullptr);
    EXPECT_TRUE(lines().empty());
    EXPECT_FALSE(QN::filesystem::exists(folder / "trace é記.txt.options.plist"));
}

TEST_F(Trace, LinesOfSeveralThreadsDoNotMix) {
    play(two_devices());
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([] {
            for (int call = 0; call < 200; ++call) {
                AMRestorableDeviceGetECID(nullptr);
            }
        });
    }
    for (auto & thread : threads) {
        thread.join();
    }
    auto const all = lines();
    EXPECT_EQ(all.size(), 800U);
    for (auto const & line : all) {
        ASSERT_EQ(line, "AMRestorableDeviceGetECID device=null -> 0000000000000000");
    }
}

TEST_F(Trace, ThatCannotBeOpenedIsReportedOnce) {
    auto const path = folder.utf8("no/such/folder.txt");
    tests::set_environment("MOBILEDEVICE_SIMULATOR_TRACE", path);
    testing::internal::CaptureStderr();
    play("<dict/>");
    AMRestorableDeviceGetState(nullptr);
    auto const reported = testing::internal::GetCapturedStderr();
    EXPECT_EQ(reported,
              path + ": the trace cannot be opened; is its folder there, and writable?\n");
}
