#pragma once

// The one name of NeededLibrary.dll. Returns 1.
#ifdef needed_library_EXPORTS
extern "C" __declspec(dllexport) int needed_number();
#else
extern "C" __declspec(dllimport) int needed_number();
#endif
