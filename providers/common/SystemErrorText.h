// The C library's message for an errno value, safe to call from several threads at once, for
// the record texts of failed system calls.
#ifndef ZORQ_PROVIDERS_COMMON_SYSTEMERRORTEXT_H
#define ZORQ_PROVIDERS_COMMON_SYSTEMERRORTEXT_H

#include <string>

namespace NQORVA20::providers {

class SystemErrorText {
public:
    // "No such file or directory (errno 2)".
    static std::string describe(int error);
};

} // namespace NQORVA20::providers

#endif
