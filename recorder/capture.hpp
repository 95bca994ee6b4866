// Copies CoreFoundation objects into values.
#pragma once

#include "platform/CoreFoundation.h"
#include "recorder/value.hpp"

#include <string>
#include <vector>

namespace recorder {

// Returns the text of a string, as values have it.
std::string capture_text(CFStringRef string);

// Returns the object as a scenario writes it: what no property list can hold becomes a dictionary
// with the key "$type". Null becomes the null object. What a scenario cannot express is replaced by
// a description, and adds a sentence to the losses.
value capture(CFTypeRef object, std::vector<std::string> & losses);

// Returns the same for what is recorded for readers alone: a sentence takes the place of what a
// scenario cannot express.
value capture_to_read(CFTypeRef object);

// Returns the error as `Failures` writes it, without "$type".
dictionary capture_error(CFErrorRef error, std::vector<std::string> & losses);

} // namespace recorder
