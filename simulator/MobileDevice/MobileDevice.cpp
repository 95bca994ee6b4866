#include "platform/MobileDevice.h"

#include "simulator/MobileDevice/amr_errors.hpp"
#include "simulator/MobileDevice/default_options.hpp"
#include "simulator/MobileDevice/simulator.hpp"
#include "simulator/MobileDevice/text.hpp"
#include "simulator/MobileDevice/values.hpp"

#include <cstdint>
#include <string>
#include <string_view>

#include <fmt/format.h>

using namespace mobile_device;

namespace {

// Seconds after a reboot command until the device has left, and has returned.
constexpr double leaves_after_reboot = 0.1;
constexpr double returns_after_reboot = 0.6;

template <typename Result>
std::string format_result(Result result) {
    return fmt::to_string(static_cast<std::int64_t>(result));
}

std::string format_result(CFStringRef result) {
    return result ? in_quotes(whole_text(result).value_or("")) : "null";
}

template <typename Device>
std::string format_device(Device const * named) {
    return named ? format_ecid(named->description().ecid) : "null";
}

std::string format_owner(presence const * shown) {
    return shown ? format_device(&shown->owner) : "null";
}

void write_call(traced_call & call, std::string_view result) {
    simulator::instance().calls().write_line(call.result(result));
}

// Makes one call that reads something of a device; for a null device, returns a default value.
template <typename Read>
auto ask(char const * function, AMRestorableDeviceRef object, Read read) {
    simulator::instance();
    auto const shown = device::from(object, function);
    auto const answer = shown ? read(*shown) : decltype(read(*shown)){};
    traced_call call{function};
    call.argument("device", format_owner(shown));
    write_call(call, format_result(answer));
    return answer;
}

// Returns the scripted answer of the next call, or else this one.
template <typename Answer>
Answer scripted_or(device & of, std::string_view key, Answer otherwise) {
    auto const scripted = of.next_answer(key);
    return scripted ? static_cast<Answer>(scripted->bits) : otherwise;
}

// Makes one call that returns what the scenario says of a device under this key.
template <typename Field>
auto ask(char const * function, AMRestorableDeviceRef object, std::string_view key,
         Field device_description::*field) {
    return ask(function, object, [=](presence const & shown) {
        return scripted_or(shown.owner, key, shown.owner.description().*field);
    });
}

CFStringRef copy_string(char const * function, AMRestorableDeviceRef object, std::string_view key,
                        cf_share<CFStringRef> device_description::*field) {
    return ask(function, object, [=](presence const & shown) {
        auto const scripted = shown.owner.next_answer(key);
        auto const & text = scripted ? scripted->text : shown.owner.description().*field;
        return retain(text.get()).release();
    });
}

// Returns null where registration succeeds.
cf_owner<CFErrorRef> registration_error(AMRestorableDeviceNotificationCallback callback) {
    if (!callback) {
        return make_error(CFSTR("AMRestoreErrorDomain"), amr_bad_argument, nullptr, nullptr);
    }
    return retain(simulator::instance().played().failures.register_for_notifications.get());
}

int enable_file_logging(char const * path) {
    auto & simulator = simulator::instance();
    if (auto const error = simulator.played().failures.enable_file_logging) {
        return error;
    }
    if (!path) {
        return amr_bad_argument;
    }
    return simulator.log().open(path) ? kAMRSuccess : amr_unable_to_open_file;
}

} // namespace

int AMDeviceNotificationSubscribe(AMDeviceNotificationCallback,
                                  unsigned int minimum_interface_speed,
                                  unsigned int connection_type, void * context,
                                  AMDeviceNotificationRef * subscription) {
    static char subscribed;
    traced_call call{__func__};
    call.argument("minimumInterfaceSpeed", fmt::to_string(minimum_interface_speed))
        .argument("connectionType", fmt::to_string(connection_type))
        .argument("context", format_presence(context));
    if (subscription) {
        *subscription = reinterpret_cast<AMDeviceNotificationRef>(&subscribed);
    }
    write_call(call, "0");
    return 0;
}

int AMDeviceNotificationUnsubscribe(AMDeviceNotificationRef) {
    traced_call call{__func__};
    write_call(call, "0");
    return 0;
}

AMRError AMRestoreEnableFileLogging(char const * path) {
    auto const result = enable_file_logging(path);
    traced_call call{__func__};
    call.argument("path", path ? in_quotes(path) : "null");
    write_call(call, fmt::to_string(result));
    return static_cast<AMRError>(result);
}

CFMutableDictionaryRef AMRestoreCreateDefaultOptions(CFAllocatorRef) {
    auto const & played = simulator::instance().played();
    bool const fails = played.failures.create_default_options;
    auto result = fails ? cf_owner<CFMutableDictionaryRef>{}
                        : make_default_options(played.default_options.get());
    traced_call call{__func__};
    write_call(call, format_presence(result.get()));
    return result.release();
}

int AMRestorableDeviceRegisterForNotifications(AMRestorableDeviceNotificationCallback callback,
                                               void * context, CFErrorRef * error) {
    auto & simulator = simulator::instance();
    auto failure = registration_error(callback);
    auto const id = failure ? 0 : simulator.center().new_client_id();
    traced_call call{__func__};
    call.argument("context", format_presence(context));
    write_call(call, fmt::to_string(id)); // before the calls that a notification brings about
    if (!failure) {
        simulator.add_client(id, callback, context);
    }
    if (error) {
        *error = failure.release();
    }
    return id;
}

int AMRestorableDeviceUnregisterForNotifications(int client_id) {
    auto & simulator = simulator::instance();
    int const result = simulator.center().has_client(client_id) ? 0 : amr_bad_argument;
    traced_call call{__func__};
    call.argument("clientID", fmt::to_string(client_id));
    write_call(call, fmt::to_string(result)); // before the calls of a running notification
    simulator.center().remove_client(client_id);
    return result;
}

AMRestorableDeviceState AMRestorableDeviceGetState(AMRestorableDeviceRef device) {
    return ask(__func__, device, [](presence const & shown) {
        return static_cast<AMRestorableDeviceState>(scripted_or(shown.owner, "State", shown.state));
    });
}

uint64_t AMRestorableDeviceGetECID(AMRestorableDeviceRef device) {
    simulator::instance();
    auto const shown = device::from(device, __func__);
    auto const ecid = shown ? shown->owner.description().ecid : 0;
    traced_call call{__func__};
    call.argument("device", format_owner(shown));
    write_call(call, format_ecid(ecid));
    return ecid;
}

uint16_t AMRestorableDeviceGetProductID(AMRestorableDeviceRef device) {
    return ask(__func__, device, "ProductID", &device_description::product_id);
}

uint32_t AMRestorableDeviceGetBoardID(AMRestorableDeviceRef device) {
    return ask(__func__, device, "BoardID", &device_description::board_id);
}

uint32_t AMRestorableDeviceGetChipID(AMRestorableDeviceRef device) {
    return ask(__func__, device, "ChipID", &device_description::chip_id);
}

uint32_t AMRestorableDeviceGetProductType(AMRestorableDeviceRef device) {
    return ask(__func__, device, "ProductType", &device_description::product_type);
}

uint32_t AMRestorableDeviceGetFusingInfo(AMRestorableDeviceRef device) {
    return ask(__func__, device, "FusingInfo", &device_description::fusing_info);
}

uint32_t AMRestorableDeviceGetLocationID(AMRestorableDeviceRef device) {
    return ask(__func__, device, "LocationID", &device_description::location_id);
}

CFStringRef AMRestorableDeviceCopySerialNumber(AMRestorableDeviceRef device) {
    return copy_string(__func__, device, "SerialNumber", &device_description::serial_number);
}

CFStringRef AMRestorableDeviceCopyProductString(AMRestorableDeviceRef device) {
    return copy_string(__func__, device, "ProductString", &device_description::product_string);
}

AMRecoveryModeDeviceRef AMRestorableDeviceCopyRecoveryModeDevice(AMRestorableDeviceRef device) {
    simulator::instance();
    auto const shown = device::from(device, __func__);
    bool const has_one = shown && shown->recovery_mode_device &&
                         scripted_or(shown->owner, "RecoveryModeDevice", true);
    traced_call call{__func__};
    call.argument("device", format_owner(shown));
    write_call(call, has_one ? format_owner(shown) : "null");
    return has_one ? retain(shown->recovery_mode_device.get()).release() : nullptr;
}

AMRError AMRecoveryModeDeviceSetAutoBoot(AMRecoveryModeDeviceRef device, unsigned char auto_boot) {
    auto & simulator = simulator::instance();
    auto const subject = device::from(device, __func__);
    auto const result = subject ? scripted_or(*subject, "SetAutoBootError",
                                              subject->description().set_auto_boot_error)
                                : amr_bad_argument;
    if (subject && result == kAMRSuccess) {
        simulator.set_auto_boot(*subject, auto_boot != 0);
    }
    traced_call call{__func__};
    call.argument("device", format_device(subject))
        .argument("autoBoot", format_boolean(auto_boot != 0));
    write_call(call, fmt::to_string(result));
    return static_cast<AMRError>(result);
}

AMRError AMRecoveryModeDeviceReboot(AMRecoveryModeDeviceRef device) {
    auto & simulator = simulator::instance();
    auto const subject = device::from(device, __func__);
    auto const result =
        subject ? scripted_or(*subject, "RebootError", subject->description().reboot_error)
                : amr_bad_argument;
    traced_call call{__func__};
    call.argument("device", format_device(subject));
    write_call(call, fmt::to_string(result));
    if (subject && result == kAMRSuccess && subject->description().returns) {
        simulator.reboot(*subject, leaves_after_reboot, returns_after_reboot);
    }
    return static_cast<AMRError>(result);
}

void AMRestorableDeviceRestore(AMRestorableDeviceRef device, CFDictionaryRef options,
                               AMRestorableDeviceProgressCallback callback, void * context) {
    auto & simulator = simulator::instance();
    auto const shown = device::from(device, __func__);
    simulator.calls().write_options(options);
    traced_call call{__func__};
    call.argument("device", format_owner(shown)).argument("context", format_presence(context));
    write_call(call, "void"); // before the calls that a report brings about
    if (shown) {
        simulator.add_restore(shown->owner, options).start(device, callback, context);
    }
}
