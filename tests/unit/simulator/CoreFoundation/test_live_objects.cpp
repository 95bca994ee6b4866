// The trace's last line, which a process writes when it ends.
#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

constexpr auto variable = "MOBILEDEVICE_SIMULATOR_TRACE";

// A trace file of this test, which the processes that the test starts write to.
class Trace {
public:
    explicit Trace(std::u8string_view name)
        : path_{std::filesystem::temp_directory_path() / name} {
        std::filesystem::remove(path_);
#ifdef _WIN32
        _wputenv_s(L"MOBILEDEVICE_SIMULATOR_TRACE", path_.c_str());
#else
        setenv(variable, path_.c_str(), 1);
#endif
    }
    Trace(Trace const &) = delete;
    Trace & operator=(Trace const &) = delete;
    ~Trace() {
#ifdef _WIN32
        _putenv_s(variable, "");
#else
        unsetenv(variable);
#endif
        std::filesystem::remove(path_);
    }

    std::string text() const {
        std::ifstream file{path_, std::ios::binary};
        return {std::istreambuf_iterator{file}, {}};
    }
    void write(std::string const & text) const {
        std::ofstream{path_, std::ios::binary} << text;
    }

private:
    std::filesystem::path path_;
};

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
    Trace const trace{u8"live objects \u00e9.txt"};
    trace.write("a line before\n");
    EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(trace.text(), "a line before\n" + line);
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
