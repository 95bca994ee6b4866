#include "simulator/faults/counted_function.hpp"

#include <algorithm>
#include <vector>

namespace faults {
namespace {

using mobile_device::scenario;
using mobile_device::scenario_fault;
using mobile_device::scripted_fault;

void check_functions(scenario const & chosen) {
    for (std::size_t index = 0; index < chosen.faults.size(); ++index) {
        auto const & name = chosen.faults[index].function;
        if (std::ranges::find(counted_functions(), name, &counted_function::name) ==
            counted_functions().end()) {
            throw scenario_fault{fmt::format("Faults[{}].Function: names no function", index)};
        }
    }
}

struct fault_plan {
    std::vector<scripted_fault> faults;
    std::string wrong; // with the scenario; empty if it is right
};

fault_plan read_plan() {
    try {
        return {chosen_scenario(check_functions).faults, {}};
    } catch (scenario_fault const & fault) {
        return {{}, fault.what()};
    }
}

// Never destroyed: the tool calls until the process ends.
std::vector<scripted_fault> const & scripted_faults() {
    static auto const & plan = *new fault_plan(read_plan());
    static std::atomic<bool> ending = false; // functions that run at the exit may still call
    if (!plan.wrong.empty() && !ending.exchange(true)) {
        mobile_device::exit_for_faulty_scenario(plan.wrong);
    }
    return plan.faults;
}

} // namespace

scripted_fault const * counted_function::begin_call() {
    auto const & scripted = scripted_faults();
    auto const number = calls.fetch_add(1, std::memory_order_relaxed) + 1;
    auto const found = std::ranges::find_if(scripted, [&](scripted_fault const & fault) {
        return fault.function == name && fault.call.value_or(number) == number;
    });
    return found == scripted.end() ? nullptr : &*found;
}

} // namespace faults
