// Turns a recording into a scenario.
#pragma once

#include "recorder/session.hpp"
#include "recorder/value.hpp"

namespace recorder {

// Returns the root of the scenario that plays what was recorded; docs/recording.md lists what it
// holds. Identities are replaced by pseudonyms unless they are kept.
value make_scenario(recording from, bool keeps_identities);

} // namespace recorder
