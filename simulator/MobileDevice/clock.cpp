#include "simulator/MobileDevice/clock.hpp"

#include <algorithm>

namespace mobile_device {

clock & clock::system() {
    static auto & only = *new clock; // threads may use it until the process is gone
    return only;
}

clock::time_point clock::now() {
    return std::chrono::steady_clock::now();
}

std::chrono::system_clock::time_point clock::calendar_now() {
    return std::chrono::system_clock::now();
}

void clock::notify(std::condition_variable & changed) {
    changed.notify_all();
}

// Waits in spans that no platform's timeout type can overflow.
void clock::wait_once(std::condition_variable & changed, std::unique_lock<std::mutex> & lock,
                      std::optional<time_point> due) {
    constexpr duration longest = std::chrono::hours{1};
    if (due) {
        changed.wait_for(lock, std::min(*due - now(), longest));
    } else {
        changed.wait(lock);
    }
}

clock::duration to_duration(double seconds) {
    constexpr double longest = 100.0 * 365 * 24 * 60 * 60;
    return std::chrono::duration_cast<clock::duration>(
        std::chrono::duration<double>{std::min(seconds, longest)});
}

} // namespace mobile_device
