#include "host/text/PathDialect.h"

#include <algorithm>
#include <cctype>

namespace diaghost {

const char* dialectName(PathDialect dialect) {
    return dialect == PathDialect::Sfcb ? "sfcb" : "pegasus";
}

std::optional<PathDialect> parseDialect(const std::string& name) {
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (lower == "pegasus")
        return PathDialect::Pegasus;
    if (lower == "sfcb")
        return PathDialect::Sfcb;
    return std::nullopt;
}

} // namespace diaghost
