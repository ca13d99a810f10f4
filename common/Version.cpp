#include "common/Version.h"

namespace NQORVA20 {

const char* diagcoreVersion() {
    return DIAGCORE_VERSION_TEXT;
}

} // namespace NQORVA20
