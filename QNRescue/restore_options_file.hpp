#pragma once

#include "QNRescue/cf_ownership.hpp"
#include "support/filesystem.hpp"

namespace qnrescue {

// The restore options in a property-list file: its root dictionary, untouched. Throws error_owner
// (a read error that names the file) where there is no such dictionary to be had from it, or where
// the file is larger than 1 GiB.
cf_owner<CFDictionaryRef> read_restore_options(QN::filesystem::path const & path);

} // namespace qnrescue
