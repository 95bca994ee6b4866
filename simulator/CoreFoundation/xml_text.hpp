// What stands between an open tag and its close tag, for the elements without children.
#pragma once

#include "simulator/CoreFoundation/property_list_strings.hpp"
#include "simulator/CoreFoundation/xml_scanner.hpp"

namespace cf {

// Each reads up to the next tag and answers a new object, owned by the caller. They throw
// PropertyListSyntaxError.
CFStringRef read_xml_string(XmlScanner & scanner, PropertyListStrings & strings);
CFDataRef read_xml_data(XmlScanner & scanner, PropertyListOptions options);
CFDateRef read_xml_date(XmlScanner & scanner);
CFNumberRef read_xml_integer(XmlScanner & scanner);
CFNumberRef read_xml_real(XmlScanner & scanner);

} // namespace cf
