#include "support/win/standard_handles.hpp"

#include <windows.h>

#include <initializer_list>

namespace QN::win {

void keep_standard_handles() noexcept {
    for (auto const stream : {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
        SetHandleInformation(GetStdHandle(stream), HANDLE_FLAG_INHERIT, 0);
    }
}

} // namespace QN::win
