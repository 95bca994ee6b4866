#pragma once

namespace launcher {

// What to do, for people, where the libraries of the platform are missing or cannot be used.
inline constexpr auto installation_advice =
    "Both libraries come with \"Apple Mobile Device Support\" for 64-bit Windows. The classic "
    "installer of iTunes for Windows (iTunes64Setup.exe, not the app from the Microsoft Store) "
    "brings it as AppleMobileDeviceSupport64.msi. Or copy all DLLs of a folder that has both "
    "libraries into the program's folder, which is searched first.";

} // namespace launcher
