#pragma once

#include "platform/CoreFoundation.h"

// The English text of a restore step or of a restore error, "Unknown" for a code that has none.
// Never null; the caller releases it.
extern "C" CFStringRef AMRLocalizedCopyStringForAMROperation(int code);
extern "C" CFStringRef AMRLocalizedCopyStringForAMRError(int code);
