#include "simulator/MobileDevice/restore_plan.hpp"

#include "simulator/MobileDevice/default_restore.hpp"

namespace mobile_device {

std::vector<planned_report> plan_restore(device & subject, CFDictionaryRef options) {
    auto const & scripted = subject.description().restore_reports;
    if (!scripted) {
        return plan_default_restore(subject, options);
    }
    std::vector<planned_report> result;
    for (auto const & report : *scripted) {
        result.push_back({report});
    }
    return result;
}

} // namespace mobile_device
