#include "recorder/functions.hpp"

#include "recorder/capture.hpp"
#include "recorder/process_session.hpp"

#include <boost/locale/encoding_utf.hpp>

#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using namespace recorder;

namespace {

// Records something, if there is a recording. The session goes on, whatever happens to that.
template <typename What>
void record(What what) noexcept {
    try {
        if (auto const to = process_session()) {
            what(*to);
        }
    } catch (std::exception const &) { // no memory
    }
}

// Returns the text without the bytes that are no UTF-8; the empty text for null.
std::string valid_utf8(char const * text) {
    return boost::locale::conv::utf_to_utf<char>(text ? text : "");
}

value integer_of(auto number) {
    using wide =
        std::conditional_t<std::is_unsigned_v<decltype(number)>, std::uint64_t, std::int64_t>;
    return make_integer(static_cast<wide>(number));
}

// Records the result that a function returned for a device, and returns it.
template <typename Result>
Result answered(char const * function, char const * key, AMRestorableDeviceRef device,
                Result result) {
    record([&](session & to) { to.answer(function, key, device, integer_of(result)); });
    return result;
}

CFStringRef answered(char const * function, char const * key, AMRestorableDeviceRef device,
                     CFStringRef result) {
    record([&](session & to) {
        to.answer(function, key, device, result ? make_string(capture_text(result)) : make_null());
    });
    return result;
}

// Records a result that the simulator never has if it is not 0, and returns it.
int expected_zero(char const * function, int result) {
    record([&](session & to) {
        to.call(function, {}, integer_of(result));
        if (result != 0) {
            to.lose(std::string{function} + " returned " + std::to_string(result) + ".");
        }
    });
    return result;
}

// Keeps a client for the life of the process, as callbacks may come late.
template <typename Client>
Client * keep(Client client) {
    static auto & mutex = *new std::mutex;
    static auto & all = *new std::deque<Client>;
    std::lock_guard const lock{mutex};
    return &all.emplace_back(client);
}

// Where notifications go.
struct notified_client {
    AMRestorableDeviceNotificationCallback callback;
    void * context;
};

void pass_notification(AMRestorableDeviceRef device, AMRestorableDeviceNotificationType type,
                       void * context) {
    record([&](session & to) { to.begin_notification(device, type); });
    auto const & client = *static_cast<notified_client const *>(context);
    client.callback(device, type, client.context);
    record([&](session & to) { to.end_notification(); });
}

// Where the reports of a restore go.
struct reported_client {
    AMRestorableDeviceProgressCallback callback;
    void * context;
    session::restore_id restore;
};

void pass_report(AMRestorableDeviceRef device, CFDictionaryRef status, void * context) {
    auto const & client = *static_cast<reported_client const *>(context);
    record([&](session & to) {
        std::vector<std::string> losses;
        to.report(client.restore, device, capture(status, losses));
        to.lose(losses);
    });
    client.callback(device, status, client.context);
}

// Returns null where nothing is recorded, or nobody is to be called.
reported_client * begin_restore(AMRestorableDeviceRef device, CFDictionaryRef options,
                                AMRestorableDeviceProgressCallback callback, void * context) {
    reported_client * client = nullptr;
    record([&](session & to) {
        auto const id = to.begin_restore(device, capture_to_read(options));
        if (callback) {
            client = keep(reported_client{callback, context, id});
        }
    });
    return client;
}

} // namespace

int recorded_AMDeviceNotificationSubscribe(AMDeviceNotificationCallback callback,
                                           unsigned int minimum_interface_speed,
                                           unsigned int connection_type, void * context,
                                           AMDeviceNotificationRef * subscription) {
    return expected_zero("AMDeviceNotificationSubscribe",
                         AMDeviceNotificationSubscribe(callback, minimum_interface_speed,
                                                       connection_type, context, subscription));
}

int recorded_AMDeviceNotificationUnsubscribe(AMDeviceNotificationRef subscription) {
    return expected_zero("AMDeviceNotificationUnsubscribe",
                         AMDeviceNotificationUnsubscribe(subscription));
}

AMRError recorded_AMRestoreEnableFileLogging(char const * path) {
    auto const result = AMRestoreEnableFileLogging(path);
    record([&](session & to) { to.file_logging(valid_utf8(path), result); });
    return result;
}

CFMutableDictionaryRef recorded_AMRestoreCreateDefaultOptions(CFAllocatorRef allocator) {
    auto const result = AMRestoreCreateDefaultOptions(allocator);
    record([&](session & to) {
        std::vector<std::string> losses;
        to.default_options(result ? std::optional{capture(result, losses)} : std::nullopt);
        to.lose(losses);
    });
    return result;
}

int recorded_AMRestorableDeviceRegisterForNotifications(
    AMRestorableDeviceNotificationCallback callback, void * context, CFErrorRef * error) {
    notified_client * client = nullptr;
    record([&](session & to) {
        to.begin_registration();
        if (callback) {
            client = keep(notified_client{callback, context});
        }
    });
    auto const before = error ? *error : nullptr;
    auto const result = AMRestorableDeviceRegisterForNotifications(
        client ? pass_notification : callback, client ? client : context, error);
    auto const failure = error && *error != before ? *error : nullptr;
    record([&](session & to) {
        std::vector<std::string> losses;
        to.end_registration(result,
                            failure ? std::optional{capture_error(failure, losses)} : std::nullopt);
        to.lose(losses);
    });
    return result;
}

int recorded_AMRestorableDeviceUnregisterForNotifications(int client_id) {
    auto const result = AMRestorableDeviceUnregisterForNotifications(client_id);
    record([&](session & to) { to.unregistered(client_id, result); });
    return result;
}

AMRestorableDeviceState recorded_AMRestorableDeviceGetState(AMRestorableDeviceRef device) {
    return answered("AMRestorableDeviceGetState", "State", device,
                    AMRestorableDeviceGetState(device));
}

uint64_t recorded_AMRestorableDeviceGetECID(AMRestorableDeviceRef device) {
    auto const result = AMRestorableDeviceGetECID(device);
    record([&](session & to) { to.ecid(device, result); });
    return result;
}

uint16_t recorded_AMRestorableDeviceGetProductID(AMRestorableDeviceRef device) {
    return answered("AMRestorableDeviceGetProductID", "ProductID", device,
                    AMRestorableDeviceGetProductID(device));
}

uint32_t recorded_AMRestorableDeviceGetBoardID(AMRestorableDeviceRef device) {
    return answered("AMRestorableDeviceGetBoardID", "BoardID", device,
                    AMRestorableDeviceGetBoardID(device));
}

uint32_t recorded_AMRestorableDeviceGetChipID(AMRestorableDeviceRef device) {
    return answered("AMRestorableDeviceGetChipID", "ChipID", device,
                    AMRestorableDeviceGetChipID(device));
}

uint32_t recorded_AMRestorableDeviceGetProductType(AMRestorableDeviceRef device) {
    return answered("AMRestorableDeviceGetProductType", "ProductType", device,
                    AMRestorableDeviceGetProductType(device));
}

uint32_t recorded_AMRestorableDeviceGetFusingInfo(AMRestorableDeviceRef device) {
    return answered("AMRestorableDeviceGetFusingInfo", "FusingInfo", device,
                    AMRestorableDeviceGetFusingInfo(device));
}

uint32_t recorded_AMRestorableDeviceGetLocationID(AMRestorableDeviceRef device) {
    return answered("AMRestorableDeviceGetLocationID", "LocationID", device,
                    AMRestorableDeviceGetLocationID(device));
}

CFStringRef recorded_AMRestorableDeviceCopySerialNumber(AMRestorableDeviceRef device) {
    return answered("AMRestorableDeviceCopySerialNumber", "SerialNumber", device,
                    AMRestorableDeviceCopySerialNumber(device));
}

CFStringRef recorded_AMRestorableDeviceCopyProductString(AMRestorableDeviceRef device) {
    return answered("AMRestorableDeviceCopyProductString", "ProductString", device,
                    AMRestorableDeviceCopyProductString(device));
}

AMRecoveryModeDeviceRef
recorded_AMRestorableDeviceCopyRecoveryModeDevice(AMRestorableDeviceRef device) {
    auto const result = AMRestorableDeviceCopyRecoveryModeDevice(device);
    record([&](session & to) { to.recovery_mode_device(device, result); });
    return result;
}

AMRError recorded_AMRecoveryModeDeviceSetAutoBoot(AMRecoveryModeDeviceRef device,
                                                  unsigned char auto_boot) {
    auto const result = AMRecoveryModeDeviceSetAutoBoot(device, auto_boot);
    record([&](session & to) {
        to.command("AMRecoveryModeDeviceSetAutoBoot", "SetAutoBootError", device,
                   make_boolean(auto_boot != 0), result);
    });
    return result;
}

AMRError recorded_AMRecoveryModeDeviceReboot(AMRecoveryModeDeviceRef device) {
    auto const result = AMRecoveryModeDeviceReboot(device);
    record([&](session & to) {
        to.command("AMRecoveryModeDeviceReboot", "RebootError", device, {}, result);
    });
    return result;
}

void recorded_AMRestorableDeviceRestore(AMRestorableDeviceRef device, CFDictionaryRef options,
                                        AMRestorableDeviceProgressCallback callback,
                                        void * context) {
    auto const client =
        begin_restore(device, options, callback, context); // reports may come at once
    AMRestorableDeviceRestore(device, options, client ? pass_report : callback,
                              client ? client : context);
    if (client) {
        record([&](session & to) { to.end_restore(client->restore); });
    }
}
