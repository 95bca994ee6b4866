#include "tests/end_to_end/needy/needed_library.hpp"

int needed_number() {
    return 1;
}
