#include "tests/unit/helpers/environment.hpp"

#include "support/filesystem.hpp"

#ifdef _WIN32
#include <windows.h>
#endif

#include <cstdlib>

namespace tests {

#ifdef _WIN32

namespace {

std::wstring wide(std::string const & text) {
    return QN::path_from_utf8(text).native();
}

} // namespace

std::string environment_variable(std::string const & name) {
    std::wstring value(32767, L'\0'); // the most that Windows holds
    value.resize(GetEnvironmentVariableW(wide(name).c_str(), value.data(), 32767));
    return QN::path_to_utf8(value);
}

void set_environment(std::string const & name, std::string const & value) {
    SetEnvironmentVariableW(wide(name).c_str(), value.empty() ? nullptr : wide(value).c_str());
}

#else

std::string environment_variable(std::string const & name) {
    char const * const value = std::getenv(name.c_str());
    return value == nullptr ? std::string() : value;
}

void set_environment(std::string const & name, std::string const & value) {
    value.empty() ? unsetenv(name.c_str()) : setenv(name.c_str(), value.c_str(), 1);
}

#endif

} // namespace tests
