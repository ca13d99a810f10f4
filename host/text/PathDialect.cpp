#include "host/text/PathDialect.h"
#include "host/text/CimNames.h"

#include <algorithm>
#include <cctype>

namespace diaghost {

const char* dialectName(PathDialect dialect) {
    return dialect == PathDialect::Sfcb ? "sfcb" : "pegasus";
}

std::optional<PathDialect> parseDialect(const std::string& name) {
    const std::string lower = lowerName(name);
    if (lower == "pegasus")
        return PathDialect::Pegasus;
    if (lower == "sfcb")
        return PathDialect::Sfcb;
    return std::nullopt;
}

} // namespace diaghost
