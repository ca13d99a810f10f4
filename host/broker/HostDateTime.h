// The host's CMPIDateTime: a point in time (microseconds since 1970-01-01 00:00 UTC, with the
// UTC offset it was written with) or an interval (microseconds), rendered as the 25-character
// CIM text "yyyymmddhhmmss.mmmmmmsutc" or "ddddddddhhmmss.mmmmmm:000".
#ifndef DIAGHOST_BROKER_HOSTDATETIME_H
#define DIAGHOST_BROKER_HOSTDATETIME_H

#include "host/broker/HostObject.h"

#include <cmpift.h>

#include <cstddef>
#include <string>

namespace diaghost {

class HostDateTime final : public HostObject {
public:
    // Owned by nobody. The value must pass validBinary; offsetMinutes is within +-999.
    static HostDateTime* create(Broker& broker, CMPIUint64 binary, bool interval,
                                int offsetMinutes = 0);
    // The current time, in UTC (offset +000), to the microsecond.
    static HostDateTime* now(Broker& broker);
    // Reads CIM datetime text; false for anything malformed (wrong length or separators,
    // non-digits, out-of-range fields, times before 1970 UTC).
    static bool parse(const char* text, CMPIUint64& binary, bool& interval, int& offsetMinutes);
    // Timestamps up to the end of year 9999, intervals up to 99999999 days.
    static bool validBinary(CMPIUint64 binary, bool interval);

    static HostDateTime* from(const CMPIDateTime* dt);
    static CMPIDateTimeFT* table();

    CMPIDateTime* cmpi() { return &cmpi_; }
    CMPIUint64 binary() const { return binary_; }
    bool interval() const { return interval_; }
    std::string text() const;
    // The same 25 characters written to `out` (no terminating NUL); the count written.
    static constexpr std::size_t textLength = 25;
    std::size_t format(char (&out)[textLength]) const;

    HostObject* copy() const override;
    void* cmpiObject() override { return &cmpi_; }

private:
    HostDateTime(Broker& broker, CMPIUint64 binary, bool interval, int offsetMinutes);

    CMPIDateTime cmpi_;
    CMPIUint64 binary_;
    bool interval_;
    short offset_;
};

} // namespace diaghost

#endif
