// Declares what libqnrescuelib.dll exports, for C and C++.
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

// The same as in every declaration of CoreFoundation.
typedef void const * CFTypeRef;
typedef struct __CFString const * CFStringRef;

// Runs the tool with argc arguments in UTF-8, the first of them the program's name. It returns,
// with the exit status, only for a command line that cannot be parsed; any other run ends the
// process. The DLL exports it as "main". The import library leaves it out, as a program has its own
// main: get its address from GetProcAddress.
typedef int (*qnrescue_main)(int argc, char const ** argv);

// Return the English text of a restore step or of a restore error, "Unknown" for a code without a
// text. Never null; the caller releases it.
CFStringRef AMRLocalizedCopyStringForAMROperation(int code);
CFStringRef AMRLocalizedCopyStringForAMRError(int code);

// Returns whether the value can be written as a property list of the format (100 is XML). It may
// hold strings, numbers, booleans, dates, data, arrays, and dictionaries with string keys, at any
// depth; in formats other than XML also sets. Null cannot be written. The value must not contain
// itself. Throws nothing; returns false where there is not enough memory to check the value.
bool CFPropertyListValidateForSerialization(CFTypeRef value, long format);

#ifdef __cplusplus
}
#endif
