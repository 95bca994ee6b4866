#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <system_error>

namespace QN::win {

// A failed Win32 call. The text is that of the error number in the Win32 category, after the
// context and ": " where a context is given.
class win32_error : public std::runtime_error {
public:
    explicit win32_error(unsigned long code);
    win32_error(std::string const & context, unsigned long code);

    std::uint32_t code;
    std::error_category const & category;
};

} // namespace QN::win
