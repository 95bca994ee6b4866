#pragma once

#include "QNRescue/command_kind.hpp"
#include "QNRescue/restore_vocabulary.hpp"
#include "platform/cf_ownership.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace qnrescue {

// What the tool reads from one progress report of a restore.
struct restore_report {
    std::string status;       // UTF-8
    operation_type operation; // the restore step, 0 for no step
    std::int64_t progress;    // percent
};

// Reads "Status", "Operation" and "Progress". Returns no value where one of them is missing, has
// another type, or cannot be converted without loss.
std::optional<restore_report> read_report(CFDictionaryRef statusDict);

// Returns whether the report completes a restore.
bool completes_restore(restore_report const & report);

// Returns whether the command is enter_restore_mode and the report completes it: the device boots.
bool completes_restore_mode_entry(restore_report const & report, command_kind command);

// Returns a copy of the report for printing: without what XML cannot hold, and with the text of the
// operation under "QN_OperationName" unless the operation is 0. Null where no copy can be made.
cf_owner<CFDictionaryRef> printable_report(CFDictionaryRef statusDict, operation_type operation);

} // namespace qnrescue
