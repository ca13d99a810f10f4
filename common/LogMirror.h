// A copy of the core's log lines for operators: object managers do not show provider log lines
// by default (sfcb drops them, OpenPegasus sends them to syslog), so the lines can also be
// written to stderr or a file. What the core sends to the broker does not change. Control
// characters in a mirrored line are written as escapes (\n, \r, \t, \xNN), so each line the
// core logs stays one line of the mirror whatever a client put into it.
#ifndef DIAGCORE_COMMON_LOGMIRROR_H
#define DIAGCORE_COMMON_LOGMIRROR_H

#include "common/Export.h"

#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT LogMirror {
public:
    // target "stderr", the path of a regular file (appended to, made when absent), or "" to stop;
    // lines of severity above maxSeverity (1 error .. 4 debug) are not copied. False, with no
    // mirror, when the file cannot be opened or is not a regular file: the open never waits, so a
    // FIFO (with or without a reader), a device or a socket is refused at once.
    static bool open(const std::string& target, int maxSeverity = 4);
    // Reads DIAGCORE_LOG (the target) and DIAGCORE_LOG_LEVEL (the severity, default 4) once per
    // process; later calls do nothing. Neither this nor open() ever throws.
    static void openFromEnvironment();
    static void write(int severity, const char* id, const char* text);
};

} // namespace NQORVA20

#endif
