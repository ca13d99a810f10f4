// Reads the short text files kernels publish (sysfs attributes, a mounts table): only regular
// files, opened without following a FIFO into a wait, and only up to a size limit, so a strange
// or hostile tree cannot hang or flood a provider.
#ifndef ZORQ_PROVIDERS_COMMON_SMALLTEXTFILE_H
#define ZORQ_PROVIDERS_COMMON_SMALLTEXTFILE_H

#include <cstddef>
#include <optional>
#include <string>

namespace NQORVA20::providers {

class SmallTextFile {
public:
    // The file's text with trailing white space removed; nothing on failure, with the reason
    // (an errno text or "not a regular file") in error when given.
    static std::optional<std::string> read(const std::string& path, std::string* error = nullptr,
                                           std::size_t limit = 4096);
    // read(), then an unsigned decimal number; nothing when the text is not one.
    static std::optional<unsigned long long> readNumber(const std::string& path,
                                                        std::string* error = nullptr);
};

} // namespace NQORVA20::providers

#endif
