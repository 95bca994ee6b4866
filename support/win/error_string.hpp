#pragma once

#include <string>
#include <string_view>

namespace QN::win {

// Returns the system's text for a Win32 error number, in UTF-8 and without the white space at its
// end; empty where the system has no text.
std::string get_error_string(unsigned long code);

// Returns the same for this thread's last error.
std::string get_last_error_string();

namespace detail {

// A text, or the error number of the look-up if it found no text.
struct looked_up_text {
    std::string text;
    unsigned long error = 0;
};

looked_up_text look_up_error_string(unsigned long code);

// Returns the text in UTF-8, without the white space at its end.
std::string trimmed_utf8(std::wstring_view text);

} // namespace detail

} // namespace QN::win
