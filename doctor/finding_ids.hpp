// The ids of all findings. Each has a section in docs/troubleshooting.md.
#pragma once

namespace doctor::id {

inline constexpr char windows_version[] = "windows-version";
inline constexpr char code_page[] = "code-page";
inline constexpr char temporary_folder[] = "temporary-folder";
inline constexpr char device_service[] = "device-service";
inline constexpr char usb_device[] = "usb-device";
inline constexpr char store_app[] = "store-app";
inline constexpr char library_place[] = "library-place";
inline constexpr char library_missing[] = "library-missing";
inline constexpr char library_damaged[] = "library-damaged";
inline constexpr char library_processor[] = "library-processor";
inline constexpr char library_names[] = "library-names";
inline constexpr char library_dependency[] = "library-dependency";
inline constexpr char library_versions[] = "library-versions";
inline constexpr char library_32_bit[] = "library-32-bit";
inline constexpr char library_load[] = "library-load";
inline constexpr char device_list[] = "device-list";
inline constexpr char check_failed[] = "check-failed";

} // namespace doctor::id
