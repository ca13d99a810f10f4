// The library's own version, for provider libraries and tools that want to report it.
#ifndef DIAGCORE_COMMON_VERSION_H
#define DIAGCORE_COMMON_VERSION_H

#include "common/Export.h"

namespace NQORVA20 {

// "major.minor.patch" of the loaded libdiagcore.
DIAGCORE_EXPORT const char* diagcoreVersion();

} // namespace NQORVA20

#endif
