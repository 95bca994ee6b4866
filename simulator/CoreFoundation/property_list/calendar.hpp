// Dates of property lists: Gregorian calendar, UTC, whole seconds, any year.
#pragma once

#include "platform/CoreFoundation.h"

#include <cstdint>
#include <string>

namespace cf {

struct utc_fields {
    std::int64_t year = 1;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// Returns the moment that the fields mean. They need not be in their ranges: what exceeds one
// carries over into the next larger unit, and month 0 is month 1.
CFAbsoluteTime absolute_time(utc_fields const & fields);

// Returns the moment as YYYY-MM-DDThh:mm:ssZ, rounded down to the second; for a NaN, or a moment
// too far away, some date.
std::string utc_text(CFAbsoluteTime time);

} // namespace cf
