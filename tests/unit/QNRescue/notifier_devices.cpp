#include "tests/unit/QNRescue/notifier_devices.hpp"

#include "tests/unit/helpers/simulated_devices.hpp"

namespace {

// clang-format off
[[maybe_unused]] bool const playing = tests::play_scenario(R"(<dict><key>Devices</key><array>
<dict><key>ECID</key><string>00000000000000F1</string><key>ConnectAfter</key><real>0.333</real></dict>
<dict><key>ECID</key><string>00000000000000E1</string><key>State</key><integer>7</integer></dict>
<dict><key>ECID</key><string>00000000000000A1</string>
 <key>ProductID</key><integer>32769</integer>
 <key>BoardID</key><integer>4294967295</integer>
 <key>ChipID</key><integer>32800</integer>
 <key>ProductType</key><integer>2147483648</integer>
 <key>FusingInfo</key><integer>3</integer>
 <key>LocationID</key><integer>336592896</integer>
 <key>SerialNumber</key><string>C39serial</string>
 <key>ProductString</key><string>Téléphone 日本 &amp; more</string>
 <key>RestoreReports</key><array/></dict>
<dict><key>ECID</key><string>00000000000000A2</string><key>State</key><string>DFU</string></dict>
<dict><key>ECID</key><string>00000000000000A3</string><key>State</key><string>RestoreOS</string></dict>
<dict><key>ECID</key><string>00000000000000A4</string><key>State</key><string>BootedOS</string></dict>
<dict><key>ECID</key><integer>0</integer></dict>
<dict><key>ECID</key><string>00000000000000B1</string>
 <key>SetAutoBootError</key><integer>1</integer></dict>
<dict><key>ECID</key><string>00000000000000B2</string>
 <key>RebootError</key><integer>65</integer></dict>
<dict><key>ECID</key><string>00000000000000B3</string>
 <key>RecoveryModeDevice</key><false/></dict>
<dict><key>ECID</key><string>00000000000000B4</string></dict>
<dict><key>ECID</key><string>00000000000000B5</string></dict>
<dict><key>ECID</key><string>00000000000000C1</string></dict>
<dict><key>ECID</key><string>00000000000000C1</string></dict>
<dict><key>ECID</key><string>00000000000000D1</string><key>RestoreReports</key><array>
 <dict><key>Status</key><dict><key>Status</key><string>Restoring</string>
  <key>Operation</key><integer>2</integer><key>Progress</key><integer>0</integer></dict></dict>
 <dict><key>Status</key><dict><key>Status</key><string>Restoring</string>
  <key>Operation</key><integer>0</integer><key>Progress</key><integer>99</integer></dict></dict>
 <dict><key>Status</key><dict><key>Status</key><string>Successful</string>
  <key>Operation</key><integer>0</integer><key>Progress</key><integer>100</integer></dict></dict>
 </array></dict>
<dict><key>ECID</key><string>00000000000000D2</string><key>RestoreReports</key><array>
 <dict><key>Status</key><dict><key>Status</key><string>Restoring</string>
  <key>Operation</key><integer>9</integer><key>Progress</key><integer>31</integer></dict></dict>
 </array></dict>
<dict><key>ECID</key><string>00000000000000D3</string><key>RestoreReports</key><array>
 <dict><key>Repeat</key><integer>20</integer>
  <key>Status</key><dict><key>Status</key><string>Successful</string>
  <key>Operation</key><integer>0</integer><key>Progress</key><integer>100</integer></dict></dict>
 </array></dict>
<dict><key>ECID</key><string>00000000000000D4</string><key>RestoreReports</key><array>
 <dict><key>After</key><real>0.333</real>
  <key>Status</key><dict><key>Status</key><string>Successful</string>
  <key>Operation</key><integer>0</integer><key>Progress</key><integer>100</integer></dict></dict>
 </array></dict>
</array></dict>)");
// clang-format on

} // namespace
