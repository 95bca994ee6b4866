#pragma once

#include "doctor/finding_ids.hpp"

#include <string>
#include <string_view>

namespace doctor {

enum class verdict { ok, warning, problem };

// One thing that was examined, for people; texts are UTF-8.
struct finding {
    std::string_view id; // one of finding_ids.hpp
    verdict word;        // a problem keeps a restore from starting
    std::string text;
    std::string what_to_do{}; // empty if there is nothing to do
};

} // namespace doctor
