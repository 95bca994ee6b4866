#include "simulator/CoreFoundation/property_list/calendar.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace cf {

namespace {

constexpr std::int64_t seconds_a_day = 86'400;
constexpr std::int64_t days_an_era = 146'097;      // 400 years
constexpr std::int64_t days_before_2001 = 730'791; // since 0000-03-01, where the eras begin
constexpr double furthest_time = 1e17;

constexpr std::int64_t floor_divide(std::int64_t value, std::int64_t divisor) {
    return value / divisor - (value % divisor < 0 ? 1 : 0);
}

// Both count days from 2001-01-01; years begin in March, so that a leap day is a year's last.
constexpr std::int64_t days_of_date(std::int64_t year, int month, int day) {
    auto const shifted_year = month <= 2 ? year - 1 : year;
    auto const shifted_month = (month + 9) % 12;
    auto const era = floor_divide(shifted_year, 400);
    auto const year_of_era = shifted_year - era * 400;
    auto const day_of_year = (153 * shifted_month + 2) / 5 + day - 1;
    return era * days_an_era + year_of_era * 365 + year_of_era / 4 - year_of_era / 100 +
           day_of_year - days_before_2001;
}

constexpr utc_fields date_of_days(std::int64_t days) {
    auto const since_era_start = days + days_before_2001;
    auto const era = floor_divide(since_era_start, days_an_era);
    auto const day_of_era = since_era_start - era * days_an_era;
    auto const year_of_era =
        (day_of_era - day_of_era / 1'460 + day_of_era / 36'524 - day_of_era / 146'096) / 365;
    auto const day_of_year =
        static_cast<int>(day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100));
    auto const shifted_month = (5 * day_of_year + 2) / 153;
    auto const month = shifted_month < 10 ? shifted_month + 3 : shifted_month - 9;
    utc_fields fields;
    fields.year = year_of_era + era * 400 + (month <= 2 ? 1 : 0);
    fields.month = month;
    fields.day = day_of_year - (153 * shifted_month + 2) / 5 + 1;
    return fields;
}

static_assert(days_of_date(2001, 1, 1) == 0);
static_assert(days_of_date(1970, 1, 1) == -11'323);

} // namespace

CFAbsoluteTime absolute_time(utc_fields const & fields) {
    auto const months = std::max(fields.month, 1) - 1;
    auto const days = days_of_date(fields.year + months / 12, months % 12 + 1, fields.day);
    auto const seconds = (fields.hour * 60 + fields.minute) * 60 + fields.second;
    return static_cast<double>(days) * static_cast<double>(seconds_a_day) + seconds;
}

std::string utc_text(CFAbsoluteTime time) {
    auto const within_reach =
        std::isnan(time) ? 0.0 : std::clamp(std::floor(time), -furthest_time, furthest_time);
    auto const seconds = static_cast<std::int64_t>(within_reach);
    auto const days = floor_divide(seconds, seconds_a_day);
    auto const second_of_day = seconds - days * seconds_a_day;
    auto const date = date_of_days(days);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", date.year, date.month, date.day,
                       second_of_day / 3'600, second_of_day / 60 % 60, second_of_day % 60);
}

} // namespace cf
