#include "host/broker/HostDateTime.h"

#include "host/broker/Broker.h"
#include "host/broker/CmpiCall.h"
#include "host/broker/HostString.h"

#include <chrono>

namespace diaghost {

namespace {

constexpr long long microsPerSecond = 1000000LL;
constexpr long long microsPerDay = 86400LL * microsPerSecond;
constexpr long long maxIntervalDays = 99999999LL;

long long daysFromCivil(long long y, unsigned m, unsigned d) {
    y -= m <= 2;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const long long yoe = y - era * 400;
    const long long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const long long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

void civilFromDays(long long z, long long& y, unsigned& m, unsigned& d) {
    z += 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const long long doe = z - era * 146097;
    const long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const long long mp = (5 * doy + 2) / 153;
    d = static_cast<unsigned>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<unsigned>(mp < 10 ? mp + 3 : mp - 9);
    y = yoe + era * 400 + (m <= 2);
}

bool isLeap(long long y) {
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

unsigned daysInMonth(long long y, unsigned m) {
    static const unsigned days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && isLeap(y) ? 29 : days[m - 1];
}

// The value of `count` digits at text; false when one of them is not a digit.
bool digits(const char* text, int count, long long& out) {
    out = 0;
    for (int i = 0; i < count; ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
        out = out * 10 + (text[i] - '0');
    }
    return true;
}

const long long maxTimestamp = (daysFromCivil(10000, 1, 1)) * microsPerDay - 1;

HostDateTime* checked(const CMPIDateTime* dt, CMPIStatus* rc) {
    HostDateTime* self = HostDateTime::from(dt);
    CmpiCall::set(rc, self ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
    return self;
}

CMPIDateTime* dateTimeClone(const CMPIDateTime* dt, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIDateTime*>(nullptr), [&]() -> CMPIDateTime* {
        HostDateTime* self = checked(dt, rc);
        return self ? CmpiCall::durableCopy(*self)->cmpi() : nullptr;
    });
}

CMPIUint64 dateTimeGetBinaryFormat(const CMPIDateTime* dt, CMPIStatus* rc) {
    HostDateTime* self = checked(dt, rc);
    return self ? self->binary() : 0;
}

CMPIString* dateTimeGetStringFormat(const CMPIDateTime* dt, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIString*>(nullptr), [&]() -> CMPIString* {
        HostDateTime* self = checked(dt, rc);
        if (!self)
            return nullptr;
        std::string text = self->text();
        return HostString::make(self->broker(), text.c_str(), text.size(),
                                HostObject::Placement::Scope);
    });
}

CMPIBoolean dateTimeIsInterval(const CMPIDateTime* dt, CMPIStatus* rc) {
    HostDateTime* self = checked(dt, rc);
    return self && self->interval() ? 1 : 0;
}

CMPIDateTimeFT dateTimeTable = {
    CMPIVersion200,          CmpiCall::release<HostDateTime, CMPIDateTime>,
    dateTimeClone,           dateTimeGetBinaryFormat,
    dateTimeGetStringFormat, dateTimeIsInterval};

} // namespace

HostDateTime::HostDateTime(Broker& broker, CMPIUint64 binary, bool interval, int offsetMinutes)
    : HostObject(Kind::DateTime, broker), cmpi_{this, &dateTimeTable}, binary_(binary),
      interval_(interval), offset_(static_cast<short>(interval ? 0 : offsetMinutes)) {}

HostDateTime* HostDateTime::create(Broker& broker, CMPIUint64 binary, bool interval,
                                   int offsetMinutes) {
    return new HostDateTime(broker, binary, interval, offsetMinutes);
}

HostDateTime* HostDateTime::now(Broker& broker) {
    auto since = broker.now().time_since_epoch();
    auto micros = std::chrono::duration_cast<std::chrono::microseconds>(since).count();
    return create(broker, static_cast<CMPIUint64>(micros < 0 ? 0 : micros), false, 0);
}

bool HostDateTime::validBinary(CMPIUint64 binary, bool interval) {
    if (interval)
        return binary / static_cast<CMPIUint64>(microsPerDay) <=
               static_cast<CMPIUint64>(maxIntervalDays);
    return binary <= static_cast<CMPIUint64>(maxTimestamp);
}

bool HostDateTime::parse(const char* text, CMPIUint64& binary, bool& interval, int& offsetMinutes) {
    if (!text)
        return false;
    for (int i = 0; i < 25; ++i) {
        if (text[i] == '\0')
            return false;
    }
    if (text[25] != '\0' || text[14] != '.')
        return false;
    long long micro = 0;
    long long utc = 0;
    if (!digits(text + 15, 6, micro) || !digits(text + 22, 3, utc))
        return false;
    const char sep = text[21];
    long long hh = 0, mi = 0, ss = 0;
    if (!digits(text + 8, 2, hh) || !digits(text + 10, 2, mi) || !digits(text + 12, 2, ss))
        return false;
    if (hh > 23 || mi > 59 || ss > 59)
        return false;
    const long long dayMicros = ((hh * 60 + mi) * 60 + ss) * microsPerSecond + micro;

    if (sep == ':') {
        long long days = 0;
        if (utc != 0 || !digits(text, 8, days))
            return false;
        binary = static_cast<CMPIUint64>(days * microsPerDay + dayMicros);
        interval = true;
        offsetMinutes = 0;
        return true;
    }
    if (sep != '+' && sep != '-')
        return false;
    long long yyyy = 0, mm = 0, dd = 0;
    if (!digits(text, 4, yyyy) || !digits(text + 4, 2, mm) || !digits(text + 6, 2, dd))
        return false;
    if (mm < 1 || mm > 12 || dd < 1 || dd > daysInMonth(yyyy, static_cast<unsigned>(mm)))
        return false;
    const int offset = static_cast<int>(sep == '-' ? -utc : utc);
    const long long local =
        daysFromCivil(yyyy, static_cast<unsigned>(mm), static_cast<unsigned>(dd)) * microsPerDay +
        dayMicros;
    const long long value = local - offset * 60LL * microsPerSecond;
    if (value < 0 || value > maxTimestamp)
        return false;
    binary = static_cast<CMPIUint64>(value);
    interval = false;
    offsetMinutes = offset;
    return true;
}

HostDateTime* HostDateTime::from(const CMPIDateTime* dt) {
    if (!dt || dt->ft != &dateTimeTable)
        return nullptr;
    return static_cast<HostDateTime*>(dt->hdl);
}

CMPIDateTimeFT* HostDateTime::table() {
    return &dateTimeTable;
}

namespace {

// Writes `value` as exactly `width` decimal digits, leading zeros included, and moves `out` on.
void digits(char*& out, unsigned long long value, int width) {
    for (int i = width - 1; i >= 0; --i) {
        out[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    out += width;
}

} // namespace

std::size_t HostDateTime::format(char (&out)[textLength]) const {
    char* p = out;
    if (interval_) {
        const unsigned long long days = binary_ / microsPerDay;
        unsigned long long rest = binary_ % microsPerDay;
        const unsigned long long micro = rest % microsPerSecond;
        rest /= microsPerSecond;
        digits(p, days, 8);
        digits(p, rest / 3600, 2);
        digits(p, rest / 60 % 60, 2);
        digits(p, rest % 60, 2);
        *p++ = '.';
        digits(p, micro, 6);
        *p++ = ':';
        digits(p, 0, 3);
        return static_cast<std::size_t>(p - out);
    }
    long long local = static_cast<long long>(binary_) + offset_ * 60LL * microsPerSecond;
    long long days = local / microsPerDay;
    long long rest = local % microsPerDay;
    if (rest < 0) {
        rest += microsPerDay;
        --days;
    }
    long long y = 0;
    unsigned m = 0, d = 0;
    civilFromDays(days, y, m, d);
    const unsigned long long micro = static_cast<unsigned long long>(rest % microsPerSecond);
    rest /= microsPerSecond;
    digits(p, static_cast<unsigned long long>(y), 4);
    digits(p, m, 2);
    digits(p, d, 2);
    digits(p, static_cast<unsigned long long>(rest / 3600), 2);
    digits(p, static_cast<unsigned long long>(rest / 60 % 60), 2);
    digits(p, static_cast<unsigned long long>(rest % 60), 2);
    *p++ = '.';
    digits(p, micro, 6);
    *p++ = offset_ < 0 ? '-' : '+';
    digits(p, static_cast<unsigned long long>(offset_ < 0 ? -offset_ : offset_), 3);
    return static_cast<std::size_t>(p - out);
}

std::string HostDateTime::text() const {
    char buf[textLength];
    return std::string(buf, format(buf));
}

HostObject* HostDateTime::copy() const {
    return new HostDateTime(broker(), binary_, interval_, offset_);
}

} // namespace diaghost
