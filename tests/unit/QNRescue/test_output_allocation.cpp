// An output channel that finds no memory, in a program whose allocations can be made to fail.
#include "platform/cf_collections.hpp"
#include "tests/unit/helpers/allocation_hook.hpp"
#include "tests/unit/helpers/objects.hpp"
#include "tests/unit/helpers/output_capture.hpp"

#include "QNRescue/error_domain.hpp"
#include "QNRescue/qnrescue.h"
#include "QNRescue/run_program_main.hpp"

#include <boost/program_options/value_semantic.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <utility>

namespace {

using namespace qnrescue;

// As large as an entry of the queue.
struct entry {
    std::string text;
    bool is_debug;
};

TEST(OutputChannel, IsAsItWasAfterAnEntryThatFoundNoMemory) {
    constexpr std::size_t queued = 1024; // the queue has to grow for the next entry
    tests::captured_streams streams;
    output_str_state state(std::nullopt);
    std::string expected;
    for (std::size_t i = 0; i < queued; ++i) {
        state.print(std::to_string(i));
        expected += std::to_string(i) + '\n';
    }
    {
        allocation_hook const hook(2 * queued * sizeof(entry), [] { throw std::bad_alloc(); });
        EXPECT_THROW(state.print("lost"), std::bad_alloc);
        EXPECT_TRUE(hook.has_run());
    }
    state.print("next"); // the lock has been given up
    state.quit();
    state.loop();
    EXPECT_EQ(streams.out.text(), expected + "next\n");
}

TEST(OutputChannel, TakesTextsOverWithoutACopy) {
    constexpr std::size_t length = 100000;
    output_str_state state(std::nullopt);
    for (auto const print : {&output_str_state::print, &output_str_state::print_debug}) {
        std::string text(length, 'x');
        allocation_hook const hook(length + 1, [] { ADD_FAILURE() << "memory for a copy"; });
        (state.*print)(std::move(text));
    }
}

// --- Values that are looked at

// An array whose members are containers, which take the validator this much memory, at the last of
// its growth.
constexpr std::size_t member_count = 1000;
constexpr std::size_t members_size = 1024 * sizeof(CFTypeRef);

cf_owner<CFTypeRef> array_of_arrays() {
    auto const member = make_mutable_array();
    auto array = make_mutable_array();
    for (std::size_t i = 0; i < member_count; ++i) {
        CFArrayAppendValue(array.get(), member.get());
    }
    return array;
}

TEST(PropertyListValidation, IsFalseWithoutMemoryAndRightAgainAfterwards) {
    auto const array = array_of_arrays();
    auto const dictionary = tests::make_dictionary({{CFSTR("key"), array.get()}});
    for (auto const value : {array.get(), static_cast<CFTypeRef>(dictionary.get())}) {
        {
            allocation_hook const hook(members_size, [] { throw std::bad_alloc(); });
            EXPECT_FALSE(CFPropertyListValidateForSerialization(value, 100));
            EXPECT_TRUE(hook.has_run());
        }
        EXPECT_TRUE(CFPropertyListValidateForSerialization(value, 100));
        EXPECT_FALSE(CFPropertyListValidateForSerialization(kCFNull, 100));
    }
}

// A document that is lost would look like a value that is wrong.
TEST(OutputChannel, SaysThatThereIsNoMemoryToLookAtAValue) {
    auto const array = array_of_arrays();
    tests::output_capture output;
    {
        allocation_hook const hook(members_size, [] { throw std::bad_alloc(); });
        EXPECT_THROW(output.state()->print_value(CFSTR("Type"), array.get()), std::bad_alloc);
        EXPECT_TRUE(hook.has_run());
    }
    EXPECT_EQ(output.out(), "");
}

// --- Whole runs that meet exceptions

// An option table that throws once it is printed.
class throwing_table {
public:
    explicit throwing_table(std::function<void()> function) {
        table.add_options()("option", new semantic(std::move(function)), "");
    }

    operator boost::program_options::options_description const &() const { return table; }

private:
    class semantic : public boost::program_options::untyped_value {
    public:
        explicit semantic(std::function<void()> to_run)
            : function(std::move(to_run)) {}
        std::string name() const override {
            function();
            return {};
        }

    private:
        std::function<void()> const function;
    };

    boost::program_options::options_description table;
};

// The status of a run that meets what the function throws.
int status_of_run(std::shared_ptr<output_str_state> const & output,
                  std::function<void()> const & function) {
    start_options options;
    options.help = true;
    return runProgramMain(options, throwing_table(function), output);
}

// Its text cannot be had.
struct silent : std::exception {
    char const * what() const noexcept override { return nullptr; }
};

TEST(RunProgramMain, LetsNoExceptionOfAnyKindEscape) {
    struct row {
        std::function<void()> function;
        CFIndex code;
        std::string reason;
    };
    for (auto const & [function, code, reason] :
         {row{[] { throw std::runtime_error("text"); }, 1, "text"},
          row{[] { throw std::bad_alloc(); }, 1, std::bad_alloc().what()},
          row{[] { throw CreateDomainError(Error::bad_state, "text"); }, 5, "text"},
          row{[] { throw silent(); }, 1, "unknown failure"},
          row{[] { throw 5; }, 1, "unknown failure"}}) {
        tests::output_capture output;
        int status = -1;
        EXPECT_NO_THROW(status = status_of_run(output.state(), function));
        EXPECT_EQ(status, code);
        auto const documents = output.documents();
        ASSERT_EQ(documents.size(), 1U);
        EXPECT_EQ(documents[0].type, "InternalError");
        auto const expected = CreateDomainError(static_cast<Error>(code), reason);
        EXPECT_TRUE(
            tests::equal(documents[0].value.get(), DictionaryFromError(expected.get()).get()));
    }
}

TEST(RunProgramMain, LetsNoExceptionOfItsPrintingEscape) {
    constexpr std::size_t queued = 1024; // the queue has to grow for the error
    using action = std::function<void()>;
    for (auto const & failure : {action([] { throw std::bad_alloc(); }), action([] { throw 5; })}) {
        tests::captured_streams const streams;
        auto const output = std::make_shared<output_str_state>(std::nullopt);
        for (std::size_t i = 0; i < queued; ++i) {
            output->print("");
        }
        allocation_hook const hook(2 * queued * sizeof(entry), failure);
        int status = -1;
        EXPECT_NO_THROW(status = status_of_run(
                            output, [] { throw CreateDomainError(Error::bad_state, "text"); }));
        EXPECT_EQ(status, 5);
        EXPECT_TRUE(hook.has_run());
    }
}

} // namespace
