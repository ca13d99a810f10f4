// How the host renders object paths as text: like OpenPegasus ("pegasus") or like sfcb ("sfcb").
// The core keys its registry on that text, so tests run under both.
#ifndef DIAGHOST_TEXT_PATHDIALECT_H
#define DIAGHOST_TEXT_PATHDIALECT_H

#include <optional>
#include <string>

namespace diaghost {

enum class PathDialect { Pegasus, Sfcb };

const char* dialectName(PathDialect dialect);
// "pegasus" or "sfcb", any letter case; nothing for other texts.
std::optional<PathDialect> parseDialect(const std::string& name);

} // namespace diaghost

#endif
