#pragma once

#include "platform/CoreFoundation.h"

// Whether the value can be written as a property list of the format (100 is XML): null cannot,
// nor can anything but strings, numbers, booleans, dates, data, arrays and dictionaries with string
// keys, at any depth. Formats other than XML also take sets.
extern "C" bool CFPropertyListValidateForSerialization(CFTypeRef value, long format);
