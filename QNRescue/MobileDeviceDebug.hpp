#pragma once

#include "QNRescue/output_state.hpp"

#include <memory>
#include <span>

#ifdef _WIN32
#define QNRESCUE_EXPORT __declspec(dllexport)
#else
#define QNRESCUE_EXPORT __attribute__((visibility("default")))
#endif

namespace qnrescue {

// Print every code of the restore errors (0 to 9999) or operations (0 to 999) and its text as one
// case of a C switch statement, as debug lines. A null output throws std::invalid_argument.
QNRESCUE_EXPORT void
print_imp_AMRLocalizedCopyStringForAMRError(std::shared_ptr<output_str_state> output);
QNRESCUE_EXPORT void
print_imp_AMRLocalizedCopyStringForAMROperation(std::shared_ptr<output_str_state> output);

// What one dump prints.
struct text_dump {
    char const * header;
    CFStringRef (*copy_text)(int code);
    int code_count;                           // codes from 0 on
    std::span<char const * const> fall_backs; // a code whose text starts with one is left out
};

extern text_dump const error_dump;
extern text_dump const operation_dump;

void print_dump(output_str_state & output, text_dump const & dump);

} // namespace qnrescue
