#include "simulator/MobileDevice/scenario.hpp"

#include <string_view>

namespace mobile_device {
namespace {

constexpr std::string_view built_in = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
    <key>Devices</key>
    <array>
        <dict>
            <key>ECID</key>          <string>001E2D4C0A91C026</string>
            <key>State</key>         <string>Recovery</string>
            <key>ProductID</key>     <integer>0x1281</integer>
            <key>BoardID</key>       <integer>0x0C</integer>
            <key>ChipID</key>        <integer>0x8110</integer>
            <key>ProductType</key>   <integer>0x0E04</integer>
            <key>FusingInfo</key>    <integer>3</integer>
            <key>LocationID</key>    <integer>0x14100000</integer>
            <key>SerialNumber</key>  <string>F4GSM1QN0D8X</string>
            <key>ProductString</key> <string>Apple Mobile Device (Recovery Mode)</string>
        </dict>
        <dict>
            <key>ECID</key>          <string>000A35D83C60802E</string>
            <key>State</key>         <string>DFU</string>
            <key>ProductID</key>     <integer>0x1227</integer>
            <key>BoardID</key>       <integer>0x0E</integer>
            <key>ChipID</key>        <integer>0x8020</integer>
            <key>FusingInfo</key>    <integer>3</integer>
            <key>LocationID</key>    <integer>0x14200000</integer>
            <key>ProductString</key> <string>Apple Mobile Device (DFU Mode)</string>
        </dict>
        <dict>
            <key>ECID</key>          <string>0004590E11D2001C</string>
            <key>State</key>         <string>RestoreOS</string>
            <key>ProductID</key>     <integer>0x1290</integer>
            <key>BoardID</key>       <integer>0x04</integer>
            <key>ChipID</key>        <integer>0x8030</integer>
            <key>ProductType</key>   <integer>0x0C01</integer>
            <key>FusingInfo</key>    <integer>3</integer>
            <key>LocationID</key>    <integer>0x14300000</integer>
            <key>SerialNumber</key>  <string>C7HSM2QN0F3K</string>
            <key>ProductString</key> <string>Apple Mobile Device (Restore Mode)</string>
        </dict>
        <dict>
            <key>ECID</key>          <string>001629E401B8801E</string>
            <key>State</key>         <string>BootedOS</string>
            <key>ProductID</key>     <integer>0x12A8</integer>
            <key>BoardID</key>       <integer>0x0A</integer>
            <key>ChipID</key>        <integer>0x8101</integer>
            <key>ProductType</key>   <integer>0x0D03</integer>
            <key>FusingInfo</key>    <integer>3</integer>
            <key>LocationID</key>    <integer>0x14400000</integer>
            <key>SerialNumber</key>  <string>G0NSM3QN0H5T</string>
            <key>ProductString</key> <string>iPhone</string>
        </dict>
    </array>
</dict>
</plist>
)";

} // namespace

scenario built_in_scenario() {
    return parse_scenario(
        {reinterpret_cast<std::uint8_t const *>(built_in.data()), built_in.size()});
}

} // namespace mobile_device
