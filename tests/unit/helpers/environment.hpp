// The environment variables of this process.
#pragma once

#include <string>
#include <string_view>

namespace tests {

// Returns the value of a variable in UTF-8; an empty one where it is not set.
std::string environment_variable(std::string const & name);
// Sets a variable to a value in UTF-8, or removes it where the value is empty.
void set_environment(std::string const & name, std::string const & value);

} // namespace tests
