#include "simulator/MobileDevice/restore_plan.hpp"

#include "simulator/MobileDevice/default_restore.hpp"

#include <algorithm>

namespace mobile_device {
namespace {

std::vector<planned_report> plan_scripted_restore(std::vector<scripted_report> const & reports) {
    std::vector<planned_report> result;
    result.reserve(reports.size());
    for (auto const & report : reports) {
        result.push_back({report});
    }
    return result;
}

} // namespace

std::vector<planned_report> plan_restore(device & subject, CFDictionaryRef options) {
    auto const earlier = subject.restores.fetch_add(1);
    auto const & first = subject.description().restore_reports;
    auto const & later = subject.description().later_restores;
    if (earlier > 0 && !later.empty()) {
        return plan_scripted_restore(later[std::min(earlier, later.size()) - 1]);
    }
    return first ? plan_scripted_restore(*first) : plan_default_restore(subject, options);
}

} // namespace mobile_device
