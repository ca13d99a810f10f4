// Counts and order numbers as property value texts: plain base-10 digits from a fresh string
// stream with default formatting (no sign, padding or grouping).
#ifndef DIAGCORE_DIAG_DECIMALTEXT_H
#define DIAGCORE_DIAG_DECIMALTEXT_H

#include <sstream>
#include <string>

namespace NQORVA20 {

inline std::string decimalText(unsigned int value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

} // namespace NQORVA20

#endif
