#pragma once

#include "platform/cf_ownership.hpp"
#include "support/filesystem.hpp"

namespace qnrescue {

using data_factory = decltype(&CFDataCreateWithBytesNoCopy);

// Returns the restore options in a property-list file: its root dictionary, unchanged. Throws
// error_owner (a read error that names the file) where the file cannot be read, has another root or
// is larger than 1 GiB. Only tests wrap the file's bytes in another way.
cf_owner<CFDictionaryRef>
read_restore_options(QN::filesystem::path const & path,
                     data_factory wrap_bytes = CFDataCreateWithBytesNoCopy);

} // namespace qnrescue
