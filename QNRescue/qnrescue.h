// What libqnrescuelib.dll exports, for C and C++.
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

// As in every declaration of CoreFoundation.
typedef void const * CFTypeRef;
typedef struct __CFString const * CFStringRef;

// The tool itself: argc arguments in UTF-8, the first of them the program's name. It returns, with
// the exit status, only for a command line that cannot be parsed; any other run ends the process.
// The DLL exports it as "main". The import library leaves it out, as a program has a main of its
// own: ask GetProcAddress for it.
typedef int (*qnrescue_main)(int argc, char const ** argv);

// The English text of a restore step or of a restore error, "Unknown" for a code that has none.
// Never null; the caller releases it.
CFStringRef AMRLocalizedCopyStringForAMROperation(int code);
CFStringRef AMRLocalizedCopyStringForAMRError(int code);

// Returns whether the value can be written as a property list of the format (100 is XML): null
// cannot, nor can anything but strings, numbers, booleans, dates, data, arrays and dictionaries
// with string keys, at any depth. Formats other than XML also take sets. The value must not contain
// itself. It throws nothing; without the memory to look at all of the value it returns false.
bool CFPropertyListValidateForSerialization(CFTypeRef value, long format);

#ifdef __cplusplus
}
#endif
