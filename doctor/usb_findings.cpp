#include "doctor/usb_findings.hpp"

#include <boost/algorithm/string/predicate.hpp>

#include <fmt/format.h>

#include <charconv>
#include <optional>
#include <string_view>
#include <utility>

namespace doctor {

namespace {

constexpr std::string_view prefix_of_vendor = "USB\\VID_05AC&PID_";

// Returns the product id; no value if it is of another vendor.
std::optional<unsigned> product_of(std::string_view instance) {
    constexpr std::size_t digits = 4;
    unsigned product = 0;
    if (!boost::algorithm::istarts_with(instance, prefix_of_vendor)) {
        return std::nullopt;
    }
    auto const id = instance.substr(prefix_of_vendor.size(), digits);
    auto const [end, error] = std::from_chars(id.data(), id.data() + id.size(), product, 16);
    return error == std::errc() && id.size() == digits && end == id.data() + digits
               ? std::optional(product)
               : std::nullopt;
}

struct mode {
    std::string_view text;
    verdict fault; // what it is if the driver does not work
};

// Returns the mode that a product id belongs to; no value for keyboards and the like.
std::optional<mode> mode_of(unsigned product) {
    if (product == 0x1227) {
        return mode{"in DFU mode", verdict::problem};
    }
    if (product >= 0x1280 && product <= 0x1283) {
        return mode{"in Recovery mode", verdict::problem};
    }
    if (product >= 0x1290 && product <= 0x12AF) {
        return mode{"in ordinary or restore mode", verdict::warning}; // no restore starts in it
    }
    return std::nullopt;
}

finding device_finding(usb_device const & each, unsigned product, mode const & in) {
    auto text = fmt::format("A device {} (05AC:{:04X}, \"{}\"), driver: {}", in.text, product,
                            each.description, each.driver.empty() ? "none" : each.driver);
    if (each.problem != 0) {
        text += fmt::format(", problem code {}", each.problem);
    }
    if (each.problem == 0 && !each.driver.empty()) {
        return {id::usb_device, verdict::ok, std::move(text)};
    }
    return {id::usb_device, in.fault, std::move(text),
            "Install the driver for USB of \"Apple Mobile Device Support\", then detach the device "
            "and attach it again."};
}

} // namespace

std::vector<finding> usb_findings(std::vector<usb_device> const & devices) {
    std::vector<finding> findings;
    for (auto const & each : devices) {
        auto const product = product_of(each.instance);
        if (!product) {
            continue;
        }
        if (auto const in = mode_of(*product)) {
            findings.push_back(device_finding(each, *product, *in));
        }
    }
    if (findings.empty()) {
        findings.push_back({id::usb_device, verdict::warning,
                            "No device that can be restored is attached over USB",
                            "Attach a device in DFU or Recovery mode."});
    }
    return findings;
}

} // namespace doctor
