#include "tests/unit/helpers/simulated_devices.hpp"

#include "platform/cf_ownership.hpp"
#include "tests/unit/helpers/environment.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"

#include <boost/filesystem/operations.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace tests {

namespace {

// A function's, since scenarios are played while global variables are initialised.
QN::filesystem::path & trace_file() {
    static QN::filesystem::path path;
    return path;
}

std::size_t scenario_device_count = 0;

std::size_t count(std::string_view text, std::string_view sought) {
    std::size_t found = 0;
    for (auto at = text.find(sought); at != std::string_view::npos;
         at = text.find(sought, at + 1)) {
        ++found;
    }
    return found;
}

class device_collector {
public:
    device_collector() {
        CFErrorRef error = nullptr;
        auto const client = AMRestorableDeviceRegisterForNotifications(collect, this, &error);
        std::unique_lock lock(mutex);
        bool const complete = changed.wait_for(
            lock, std::chrono::seconds(60), [this] { return collected == scenario_device_count; });
        lock.unlock();
        AMRestorableDeviceUnregisterForNotifications(client);
        if (!complete) {
            throw std::runtime_error("not all devices of the scenario came");
        }
    }

    std::vector<AMRestorableDeviceRef> const & with(std::uint64_t ecid) { return devices.at(ecid); }

private:
    static void collect(AMRestorableDeviceRef device, AMRestorableDeviceNotificationType type,
                        void * context) {
        if (type == kAMRestorableDeviceConnected) {
            auto & self = *static_cast<device_collector *>(context);
            std::lock_guard const lock(self.mutex);
            CFRetain(device);
            self.devices[AMRestorableDeviceGetECID(device)].push_back(device);
            ++self.collected;
            self.changed.notify_all();
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::uint64_t, std::vector<AMRestorableDeviceRef>> devices;
    std::size_t collected = 0;
};

} // namespace

bool play_scenario(std::string_view dictionary) {
    static temporary_folder const folder;
    auto const scenario = folder.path() / "scenario.plist";
    write_file(scenario, "<plist version=\"1.0\">" + std::string(dictionary) + "</plist>");
    scenario_device_count = count(dictionary, "<key>ECID</key>");
    trace_file() = folder.path() / "trace.txt";
    write_file(trace_file(), "");
    set_environment("MOBILEDEVICE_SIMULATOR_SCENARIO", QN::path_to_utf8(scenario));
    set_environment("MOBILEDEVICE_SIMULATOR_TRACE", QN::path_to_utf8(trace_file()));
    return true;
}

std::vector<AMRestorableDeviceRef> const & devices_with(std::uint64_t ecid) {
    // Not destroyed, so that the address sanitizer can find the devices that are still held.
    static auto & collector = *new device_collector;
    return collector.with(ecid);
}

call_trace::call_trace()
    : beginning_of_trace(QN::filesystem::file_size(trace_file())) {}

std::vector<std::string> call_trace::calls(std::string_view beginning) const {
    std::ifstream stream(std::filesystem::path(trace_file().native()), std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(beginning_of_trace));
    std::vector<std::string> found;
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with(beginning)) {
            found.push_back(line);
        }
    }
    return found;
}

std::string last_restore_options() {
    return read_file(trace_file().native() + QN::filesystem::path(".options.plist").native());
}

} // namespace tests
