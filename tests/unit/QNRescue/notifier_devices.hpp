// The devices that the tests of the notifier play with, by what is special about them.
#pragma once

#include <cstdint>

namespace tests {

constexpr std::uint64_t recovery_device = 0xA1; // has every property, and reports nothing
constexpr std::uint64_t dfu_device = 0xA2;      // has no property
constexpr std::uint64_t restore_os_device = 0xA3;
constexpr std::uint64_t booted_device = 0xA4;
constexpr std::uint64_t device_without_ecid = 0;
constexpr std::uint64_t refuses_auto_boot = 0xB1; // with error 1
constexpr std::uint64_t refuses_reboot = 0xB2;    // with error 65
constexpr std::uint64_t without_recovery_mode = 0xB3;
constexpr std::uint64_t exits_recovery = 0xB4; // reboots, and is gone then
constexpr std::uint64_t stays_in_recovery = 0xB5;
constexpr std::uint64_t twice_there = 0xC1; // two entries
constexpr std::uint64_t restores = 0xD1;    // operations 2 and 0, the latter at 99 and 100
constexpr std::uint64_t boots = 0xD2;       // reports operation 9 at 31, and nothing more
constexpr std::uint64_t completes_twice = 0xD3;
constexpr std::uint64_t restores_slowly = 0xD4; // completes after a third of a second
constexpr std::uint64_t in_strange_state = 0xE1;
constexpr std::uint64_t comes_late = 0xF1; // a third of a second after the others

} // namespace tests
