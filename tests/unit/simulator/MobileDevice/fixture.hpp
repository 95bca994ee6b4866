// What tests of the calls have in common.
#pragma once

#include "platform/cf_strings.hpp"
#include "simulator/MobileDevice/simulator.hpp"
#include "simulator/MobileDevice/values.hpp"
#include "tests/unit/simulator/MobileDevice/property_list_text.hpp"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

// Plays scenarios given as the XML of a root dictionary.
class SimulatedPlatform : public testing::Test {
protected:
    ~SimulatedPlatform() override { mobile_device::simulator::replace(nullptr); }

    mobile_device::simulator & play(std::string const & root) {
        m_objects.clear();
        auto const text = property_list::document(root);
        mobile_device::simulator::replace(
            std::make_unique<mobile_device::simulator>(mobile_device::parse_scenario(
                {reinterpret_cast<std::uint8_t const *>(text.data()), text.size()})));
        return mobile_device::simulator::instance();
    }

    // An object of a device as it is at the start, which lives as long as the test.
    AMRestorableDeviceRef device(std::size_t index) {
        auto & object = m_objects[index];
        if (!object) {
            auto & of = *mobile_device::simulator::instance().devices().at(index);
            object = of.make_object(of.initial);
        }
        return object.get();
    }

private:
    std::map<std::size_t, mobile_device::cf_owner<AMRestorableDeviceRef>> m_objects;
};

struct notification {
    mobile_device::cf_share<AMRestorableDeviceRef> object;
    std::uint64_t ecid;
    int state;
    int type;

    bool operator==(notification const & other) const {
        return ecid == other.ecid && state == other.state && type == other.type;
    }
};

inline void PrintTo(notification const & shown, std::ostream * out) {
    *out << "{" << shown.ecid << ", state " << shown.state << ", type " << shown.type << "}";
}

// Registers for notifications and remembers them.
class notification_recorder {
public:
    notification_recorder() {
        id = AMRestorableDeviceRegisterForNotifications(&notification_recorder::receive, this,
                                                        nullptr);
    }
    notification_recorder(notification_recorder const &) = delete;
    notification_recorder & operator=(notification_recorder const &) = delete;
    ~notification_recorder() { AMRestorableDeviceUnregisterForNotifications(id); }

    // What came until there were so many notifications, or until the limit.
    std::vector<notification> wait_for(std::size_t count,
                                       std::chrono::milliseconds limit = std::chrono::seconds{20}) {
        std::unique_lock lock{m_mutex};
        m_condition.wait_for(lock, limit, [&] { return m_received.size() >= count; });
        return m_received;
    }

    std::vector<std::chrono::steady_clock::time_point> times() {
        std::lock_guard const lock{m_mutex};
        return m_times;
    }

    int id = 0;

private:
    static void receive(AMRestorableDeviceRef object, AMRestorableDeviceNotificationType type,
                        void * context) {
        auto & self = *static_cast<notification_recorder *>(context);
        notification received{mobile_device::retain(object), AMRestorableDeviceGetECID(object),
                              AMRestorableDeviceGetState(object), type};
        std::lock_guard const lock{self.m_mutex};
        self.m_received.push_back(std::move(received));
        self.m_times.push_back(std::chrono::steady_clock::now());
        self.m_condition.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::vector<notification> m_received;
    std::vector<std::chrono::steady_clock::time_point> m_times;
};

// Gets the reports of restores and keeps their status dictionaries. There is no taking back a
// callback, so it lets all activity end before it goes.
class report_recorder {
public:
    using status = mobile_device::cf_share<CFDictionaryRef>;

    report_recorder() = default;
    report_recorder(report_recorder const &) = delete;
    report_recorder & operator=(report_recorder const &) = delete;
    ~report_recorder() { mobile_device::simulator::instance().end(std::chrono::hours{1}); }

    void restore(AMRestorableDeviceRef device, CFDictionaryRef options = nullptr) {
        AMRestorableDeviceRestore(device, options, &report_recorder::receive, this);
    }

    std::vector<status> wait_for(std::size_t count,
                                 std::chrono::milliseconds limit = std::chrono::seconds{20}) {
        std::unique_lock lock{m_mutex};
        m_condition.wait_for(lock, limit, [&] { return m_received.size() >= count; });
        return m_received;
    }

    // What came until the status text, or until the limit.
    std::vector<status> wait_for_status(std::string const & text) {
        std::unique_lock lock{m_mutex};
        m_condition.wait_for(lock, std::chrono::seconds{20}, [&] {
            return !m_received.empty() && text_of(m_received.back(), "Status") == text;
        });
        return m_received;
    }

    std::vector<std::chrono::steady_clock::time_point> times() {
        std::lock_guard const lock{m_mutex};
        return m_times;
    }

    static std::string text_of(status const & from, char const * key) {
        auto const value =
            CFDictionaryGetValue(from.get(), mobile_device::make_cfstring(key).get());
        return value ? qnrescue::to_utf8(static_cast<CFStringRef>(value)).value() : "";
    }

    static std::int64_t number_of(status const & from, char const * key) {
        std::int64_t number = -1;
        auto const value =
            CFDictionaryGetValue(from.get(), mobile_device::make_cfstring(key).get());
        if (value) {
            CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &number);
        }
        return number;
    }

private:
    static void receive(AMRestorableDeviceRef, CFDictionaryRef borrowed, void * context) {
        auto & self = *static_cast<report_recorder *>(context);
        std::lock_guard const lock{self.m_mutex};
        self.m_received.push_back(mobile_device::retain(borrowed));
        self.m_times.push_back(std::chrono::steady_clock::now());
        self.m_condition.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::vector<status> m_received;
    std::vector<std::chrono::steady_clock::time_point> m_times;
};
