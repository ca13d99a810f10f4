#include "providers/common/SystemErrorText.h"

#include <cstring>

namespace NQORVA20::providers {

namespace {

// strerror_r comes in two shapes; both are handled so the code builds against either.
[[maybe_unused]] const char* messageOf(int result, const char* buffer) {
    return result == 0 ? buffer : nullptr;
}
[[maybe_unused]] const char* messageOf(const char* result, const char*) {
    return result;
}

} // namespace

std::string SystemErrorText::describe(int error) {
    char buffer[256] = {0};
    const char* message = messageOf(strerror_r(error, buffer, sizeof buffer), buffer);
    std::string text = message != nullptr && *message != '\0' ? message : "Unknown error";
    return text + " (errno " + std::to_string(error) + ")";
}

} // namespace NQORVA20::providers
