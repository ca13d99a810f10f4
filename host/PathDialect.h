// How the host renders object paths as text: like OpenPegasus ("pegasus") or like sfcb ("sfcb").
// The core keys its registry on that text, so tests run under both.
#ifndef DIAGCORE_HOST_PATHDIALECT_H
#define DIAGCORE_HOST_PATHDIALECT_H

#include <optional>
#include <string>

namespace NQORVA20::host {

enum class PathDialect { Pegasus, Sfcb };

const char* dialectName(PathDialect dialect);
// "pegasus" or "sfcb", any letter case; nothing for other texts.
std::optional<PathDialect> parseDialect(const std::string& name);

} // namespace NQORVA20::host

#endif
