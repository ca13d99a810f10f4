// The core's log lines: every one goes through the broker's logMessage under the id "diagcore",
// with no string object; the returned status is not looked at. Without a usable broker the line
// is dropped.
#ifndef DIAGCORE_COMMON_CORELOG_H
#define DIAGCORE_COMMON_CORELOG_H

#include <cmpidt.h>

#include <string>

namespace NQORVA20 {

enum CoreLogSeverity { LogError = 1, LogInfo = 2, LogWarning = 3, LogDebug = 4 };

void coreLog(const CMPIBroker* broker, int severity, const std::string& text);
void coreLog(const CMPIBroker* broker, int severity, const char* text);

} // namespace NQORVA20

#endif
