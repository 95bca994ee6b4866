#include "simulator/MobileDevice/world.hpp"

#include "tests/unit/simulator/MobileDevice/property_list_text.hpp"

#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace mobile_device;
using namespace property_list;
using namespace std::chrono_literals;

namespace {

world parsed_world(std::string const & root) {
    auto const bytes = document(root);
    return parse_world({reinterpret_cast<std::uint8_t const *>(bytes.data()), bytes.size()});
}

std::string fault_of_world(std::string const & root) {
    try {
        parsed_world(root);
        return "";
    } catch (scenario_fault const & fault) {
        return fault.what();
    }
}

std::string world_with(std::string const & device) {
    return dictionary({{"Began", integer(5)}, {"Devices", array({device})}});
}

std::string step_text(std::int64_t number, std::int64_t at, std::string const & as) {
    return dictionary({{"Number", integer(number)}, {"At", integer(at)}, {"As", text(as)}});
}

std::string device_text(std::string const & course, std::string const & more = "") {
    return "<dict><key>ECID</key><string>1</string><key>AutoBoot</key><true/><key>Course</key>" +
           course + more + "</dict>";
}

world_device in_recovery() {
    return {.ecid = 1, .course = {{1, 0s, phase::initial}}};
}

using course = std::vector<world_step>;

} // namespace

TEST(World, SurvivesItsFile) {
    world written{.began =
                      std::chrono::sys_time<std::chrono::microseconds>{1'700'000'000'123'456us}};
    for (auto const ecid : {UINT64_C(0), UINT64_C(0xFFFFFFFFFFFFFFFF)}) {
        auto device = in_recovery();
        device.ecid = ecid;
        device.auto_boot = ecid != 0;
        for (auto const as : {phase::away, phase::initial, phase::recovery, phase::restore_os,
                              phase::booted_os, phase::unplugged}) {
            device.course.push_back({device.course.back().number + 1, 3ms, as});
        }
        if (device.auto_boot) {
            device.restore = world_restore{{77, 1LL << 60}, 12345us};
        }
        written.devices.push_back(device);
    }
    auto const data = make_property_list(written);
    world const read = parse_world(
        {CFDataGetBytePtr(data.get()), static_cast<std::size_t>(CFDataGetLength(data.get()))});
    EXPECT_EQ(read, written);
}

TEST(World, WhatIsNoWorldIsAFaultWithItsPlace) {
    auto const one = array({step_text(1, 0, "Initial")});
    EXPECT_EQ(fault_of_world(world_with(device_text(one))), "");
    struct {
        std::string root;
        std::string fault;
    } const cases[] = {
        {"<array/>", "root: must be a dictionary"},
        {"<dict/>", "root: the key Began is missing"},
        {dictionary({{"Began", integer(5)}}), "root: the key Devices is missing"},
        {dictionary({{"Began", integer(5)}, {"Devices", array({})}, {"X", integer(1)}}),
         "X: unknown key"},
        {world_with(device_text(array({}))), "Devices[0].Course: must not be empty"},
        {world_with(device_text(array({step_text(1, 0, "Elsewhere")}))),
         "Devices[0].Course[0].As: must be Away, Initial, Recovery, RestoreOS, BootedOS or"
         " Unplugged"},
        {world_with(device_text(array({step_text(0, 0, "Away")}))),
         "Devices[0].Course[0]: must follow the step before"},
        {world_with(device_text(array({step_text(2, 0, "Away"), step_text(2, 0, "Initial")}))),
         "Devices[0].Course[1]: must follow the step before"},
        {world_with(device_text(array({step_text(1, 1, "Away"), step_text(2, 0, "Initial")}))),
         "Devices[0].Course[1]: must follow the step before"},
        {world_with(device_text(array({step_text(INT64_MAX, 0, "Away")}))),
         "Devices[0].Course[0].Number: is too high"},
        {world_with(device_text(array({step_text(1, INT64_MAX, "Away")}))),
         "Devices[0].Course[0].At: must be a time within 200 years"},
        {world_with(device_text(one, "<key>Restore</key><dict/>")),
         "Devices[0].Restore: the key Process is missing"},
    };
    for (auto const & [root, fault] : cases) {
        EXPECT_EQ(fault_of_world(root), fault);
    }
}

TEST(World, AScriptedDeviceComesAndGoesInScaledTime) {
    device_description description;
    description.connect_after = 2;
    description.disconnect_after = 5;
    auto const device = make_world_device(description, 0.5);
    EXPECT_EQ(device.at(999ms), phase::away);
    EXPECT_EQ(device.at(1s), phase::initial);
    EXPECT_EQ(device.at(2499ms), phase::initial);
    EXPECT_EQ(device.at(2500ms), phase::unplugged);
}

TEST(World, ADeviceThatOnlyNotificationsShowNeverComes) {
    device_description description;
    description.connects = false;
    EXPECT_EQ(make_world_device(description, 1).at(1h), phase::away);
}

TEST(World, AChangeReplacesWhatWasPlanned) {
    auto device = in_recovery();
    EXPECT_EQ(device.change_from(10s, {{11s, phase::away}, {12s, phase::booted_os}}), 3);
    EXPECT_EQ(device.change_from(11s, {{13s, phase::away}, {14s, phase::recovery}}), 5);
    EXPECT_EQ(device.course,
              (course{{1, 0s, phase::initial}, {4, 13s, phase::away}, {5, 14s, phase::recovery}}));
}

TEST(World, NothingFollowsTheUnplugging) {
    auto device = in_recovery();
    device.course.push_back({2, 12s, phase::unplugged});
    EXPECT_EQ(device.change_from(10s, {{11s, phase::away}, {12s, phase::booted_os}}), 0);
    EXPECT_EQ(device.at(11s), phase::away);
    EXPECT_EQ(device.at(12s), phase::unplugged);
    auto const before = device;
    EXPECT_EQ(device.change_from(12s, {{13s, phase::booted_os}}), 0);
    EXPECT_EQ(device, before);
}

TEST(World, AnInterruptedRestoreEndsInRecovery) {
    auto device = in_recovery();
    device.change_from(1s, {{2s, phase::away}, {3s, phase::restore_os}, {30s, phase::booted_os}});
    device.restore = world_restore{{}, 4s};
    device.interrupt_restore(10s, 500ms);
    EXPECT_FALSE(device.restore);
    EXPECT_EQ(device.at(13s), phase::restore_os);
    EXPECT_EQ(device.at(13600ms), phase::away);
    EXPECT_EQ(device.at(14s), phase::recovery);
    EXPECT_EQ(device.at(40s), phase::recovery);
    device.restore = world_restore{{}, 20s};
    device.interrupt_restore(0s, 500ms);
    EXPECT_EQ(device.at(19999ms), phase::recovery);
    EXPECT_EQ(device.course.back(),
              (world_step{device.course.back().number, 20s, phase::recovery}));
}

TEST(World, OldStepsAreForgottenExceptTheLast) {
    auto device = in_recovery();
    device.change_from(1s, {{2s, phase::away}, {3s, phase::restore_os}});
    auto const all = device;
    device.forget_before(11s);
    EXPECT_EQ(device, all);
    device.forget_before(12500ms);
    EXPECT_EQ(device.course, (course{{2, 2s, phase::away}, {3, 3s, phase::restore_os}}));
    device.forget_before(1h);
    EXPECT_EQ(device.course, (course{{3, 3s, phase::restore_os}}));
}
