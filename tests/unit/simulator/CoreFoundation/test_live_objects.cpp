// The trace's last line, which a process writes when it ends.
#include "tests/unit/helpers/environment.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"
#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

void clean_up_everything() {
    auto const map = dictionary();
    auto const list = array();
    CFArrayAppendValue(list.get(), string("element").get());
    CFDictionarySetValue(map.get(), CFSTR("constant key"), list.get());
    CFDictionarySetValue(map.get(), string("key").get(), integer(1000).get());
    auto const fault = adopt(CFErrorCreate(nullptr, CFSTR("d"), 1, map.get()));
    description(fault.get());
}

// One exit for each way of leaving; a test process starts with nothing alive.
[[noreturn]] void exit_clean() {
    clean_up_everything();
    std::exit(0);
}

[[noreturn]] void exit_with_three_leaks() {
    clean_up_everything();
    auto list = array();
    CFArrayAppendValue(list.get(), string("kept alive by the array").get());
    static auto const * const leaked = list.release();
    static auto const * const retained = CFRetain(real(0.25).get());
    std::exit(leaked != nullptr && retained != nullptr ? 0 : 1);
}

[[noreturn]] void exit_with_constants() {
    static CFTypeRef const constants[] = {
        CFSTR("a constant"), kCFBooleanTrue,    integer(7).release(),
        real(1.0).release(), CFRetain(kCFNull),
    };
    std::exit(constants[0] != nullptr ? 0 : 1);
}

void expect_at_exit(void (*leave)(), std::string const & line) {
    // The process that is to exit runs this test too, and has to find the same folder.
    tests::temporary_folder const folder("QNRESCUE_TEST_FOLDER");
    tests::set_environment("MOBILEDEVICE_SIMULATOR_TRACE",
                           folder.write("trace.txt", "a line before\n"));
    EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "");
    tests::set_environment("MOBILEDEVICE_SIMULATOR_TRACE", "");
    EXPECT_EQ(tests::read_file(folder / "trace.txt"), "a line before\n" + line);
}

TEST(LiveObjectsDeathTest, AreNoneAfterCleaningUp) {
    expect_at_exit(exit_clean, "live-objects 0\n");
}

TEST(LiveObjectsDeathTest, AreWhatWasNeverReleased) {
    expect_at_exit(exit_with_three_leaks, "live-objects 3\n");
}

TEST(LiveObjectsDeathTest, AreNotConstantsOrSharedNumbers) {
    expect_at_exit(exit_with_constants, "live-objects 0\n");
}

} // namespace
