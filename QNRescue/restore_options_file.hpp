#pragma once

#include "platform/cf_ownership.hpp"
#include "support/filesystem.hpp"

namespace qnrescue {

using data_factory = decltype(&CFDataCreateWithBytesNoCopy);

// The restore options in a property-list file: its root dictionary, untouched. Throws error_owner
// (a read error that names the file) where there is no such dictionary to be had from it, or where
// the file is larger than 1 GiB. Only tests have another way to wrap the file's bytes.
cf_owner<CFDictionaryRef>
read_restore_options(QN::filesystem::path const & path,
                     data_factory wrap_bytes = CFDataCreateWithBytesNoCopy);

} // namespace qnrescue
