// A library may start a process that inherits handles and outlives the run: it must not keep those
// waiting who read what the tool writes.
#include "QNRescue/output_state.hpp"
#include "QNRescue/process.hpp"
#include "QNRescue/start_options.hpp"
#include "tests/unit/helpers/overlapped_pipe.hpp"

#include <boost/asio/io_context.hpp>

#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <string_view>

namespace {

using namespace qnrescue;

constexpr DWORD longest_life = 60000; // milliseconds
constexpr auto long_enough = std::chrono::seconds(20);
constexpr std::string_view heir_option = "--inherit";

HANDLE handle_of(std::intptr_t number) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a handle is known as a number
    return reinterpret_cast<HANDLE>(number);
}

// A process that inherits what it can, from construction to destruction.
class heir {
public:
    heir() {
        SECURITY_ATTRIBUTES attributes{sizeof attributes, nullptr, TRUE};
        end = CreateEventW(&attributes, TRUE, FALSE, nullptr);
        auto command = L"heir --inherit " + std::to_wstring(reinterpret_cast<std::intptr_t>(end));
        std::wstring program(MAX_PATH, L'\0');
        GetModuleFileNameW(nullptr, program.data(), MAX_PATH);
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION started{};
        if (CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, TRUE, 0, nullptr,
                           nullptr, &startup, &started)) {
            process = started.hProcess;
            CloseHandle(started.hThread);
        }
    }
    ~heir() {
        SetEvent(end);
        EXPECT_EQ(WaitForSingleObject(process, longest_life), WAIT_OBJECT_0);
        CloseHandle(process);
        CloseHandle(end);
    }
    heir(heir const &) = delete;
    heir & operator=(heir const &) = delete;

    bool lives() const { return WaitForSingleObject(process, 0) == WAIT_TIMEOUT; }

private:
    HANDLE end = nullptr;
    HANDLE process = nullptr;
};

// Whether the reader comes to the end of the pipe while the heir lives.
void expect_end_before(heir const & child, tests::overlapped_pipe & pipe) {
    auto reading = std::async(std::launch::async, [&] { return pipe.read_to_end(); });
    EXPECT_EQ(reading.wait_for(long_enough), std::future_status::ready);
    EXPECT_TRUE(child.lives());
}

TEST(Inheritance, NoProcessKeepsTheOutputPipeOpen) {
    tests::overlapped_pipe pipe;
    SetHandleInformation(handle_of(pipe.writing_end()), HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    start_options options;
    options.output_pipe = pipe.writing_end();
    boost::asio::io_context context;
    auto output = make_output_state(context.get_executor(), options);
    heir const child;
    output.reset();
    expect_end_before(child, pipe);
}

TEST(Inheritance, NoProcessKeepsAStandardHandleOpen) {
    for (auto const stream : {STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
        tests::overlapped_pipe pipe;
        auto const writing_end = handle_of(pipe.writing_end());
        SetHandleInformation(writing_end, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
        auto const before = GetStdHandle(stream);
        SetStdHandle(stream, writing_end);
        prepare_process();
        SetStdHandle(stream, before);
        heir const child;
        CloseHandle(writing_end);
        expect_end_before(child, pipe);
    }
}

} // namespace

int main(int argc, char ** argv) {
    if (argc == 3 && argv[1] == heir_option) {
        WaitForSingleObject(handle_of(std::stoll(argv[2])), longest_life);
        return 0;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
