#include "host/CimValueCodec.h"

#include "host/Broker.h"
#include "host/ObjectPathText.h"

#include <cmpift.h>

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace NQORVA20::host {

namespace {

using Kind = MofValue::Kind;

const char* kindName(Kind kind) {
    switch (kind) {
    case Kind::Null:
        return "NULL";
    case Kind::String:
        return "string";
    case Kind::Integer:
        return "integer";
    case Kind::Real:
        return "real";
    case Kind::Boolean:
        return "boolean";
    case Kind::Char:
        return "char";
    case Kind::Reference:
        return "reference";
    }
    return "value";
}

const char* typeName(CimTypeCode type) {
    switch (type & ~CMPI_ARRAY) {
    case CMPI_boolean:
        return "boolean";
    case CMPI_char16:
        return "char16";
    case CMPI_real32:
        return "real32";
    case CMPI_real64:
        return "real64";
    case CMPI_uint8:
        return "uint8";
    case CMPI_uint16:
        return "uint16";
    case CMPI_uint32:
        return "uint32";
    case CMPI_uint64:
        return "uint64";
    case CMPI_sint8:
        return "sint8";
    case CMPI_sint16:
        return "sint16";
    case CMPI_sint32:
        return "sint32";
    case CMPI_sint64:
        return "sint64";
    case CMPI_ref:
        return "REF";
    case CMPI_string:
        return "string";
    case CMPI_dateTime:
        return "datetime";
    default:
        return "unknown type";
    }
}

[[noreturn]] void mismatch(Kind kind, const std::string& text, CimTypeCode type) {
    throw CimValueCodec::Error(std::string("a ") + kindName(kind) + " value (" + text +
                               ") cannot be " + typeName(type));
}

std::string statusText(const CMPIStatus& st) {
    std::string out = "rc " + std::to_string(st.rc);
    if (st.msg && st.msg->ft) {
        const char* text = st.msg->ft->getCharPtr(st.msg, nullptr);
        if (text)
            out += ": " + std::string(text);
    }
    return out;
}

bool isUnsignedType(CimTypeCode t) {
    return t == CMPI_uint8 || t == CMPI_uint16 || t == CMPI_uint32 || t == CMPI_uint64;
}

bool isSignedType(CimTypeCode t) {
    return t == CMPI_sint8 || t == CMPI_sint16 || t == CMPI_sint32 || t == CMPI_sint64;
}

int bitsOf(CimTypeCode t) {
    return 8 << ((t >> 4) & 3);
}

CMPIValue integerValue(const std::string& text, CimTypeCode type) {
    bool negative = false;
    unsigned long long mag = 0;
    if (!CimValueCodec::parseInteger(text, negative, mag))
        throw CimValueCodec::Error("\"" + text + "\" is not an integer");
    int bits = bitsOf(type);
    CMPIValue v{};
    if (isUnsignedType(type)) {
        unsigned long long max = bits == 64 ? ~0ull : (1ull << bits) - 1;
        if ((negative && mag != 0) || mag > max)
            throw CimValueCodec::Error(text + " is out of range for " + typeName(type));
        switch (bits) {
        case 8:
            v.uint8 = static_cast<CMPIUint8>(mag);
            break;
        case 16:
            v.uint16 = static_cast<CMPIUint16>(mag);
            break;
        case 32:
            v.uint32 = static_cast<CMPIUint32>(mag);
            break;
        default:
            v.uint64 = mag;
        }
        return v;
    }
    unsigned long long limit = 1ull << (bits - 1); // magnitude of the most negative value
    if ((negative && mag > limit) || (!negative && mag >= limit))
        throw CimValueCodec::Error(text + " is out of range for " + typeName(type));
    long long s = negative ? static_cast<long long>(0ull - mag) : static_cast<long long>(mag);
    switch (bits) {
    case 8:
        v.sint8 = static_cast<CMPISint8>(s);
        break;
    case 16:
        v.sint16 = static_cast<CMPISint16>(s);
        break;
    case 32:
        v.sint32 = static_cast<CMPISint32>(s);
        break;
    default:
        v.sint64 = s;
    }
    return v;
}

// The single UTF-8 character of text as a UCS-2 code unit.
CMPIChar16 charValue(const std::string& text) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t n = text.size();
    unsigned long cp = 0;
    std::size_t len = 0;
    if (n >= 1 && p[0] < 0x80) {
        cp = p[0];
        len = 1;
    } else if (n >= 2 && (p[0] & 0xE0) == 0xC0 && (p[1] & 0xC0) == 0x80) {
        cp = ((p[0] & 0x1Fu) << 6) | (p[1] & 0x3Fu);
        len = 2;
    } else if (n >= 3 && (p[0] & 0xF0) == 0xE0 && (p[1] & 0xC0) == 0x80 && (p[2] & 0xC0) == 0x80) {
        cp = ((p[0] & 0x0Fu) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
        len = 3;
    }
    if (len == 0 || len != n)
        throw CimValueCodec::Error("\"" + text + "\" is not a single char16 character");
    return static_cast<CMPIChar16>(cp);
}

std::string char16Text(CMPIChar16 c) {
    std::string out;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
    return out;
}

CMPIString* makeString(Broker& broker, const std::string& text) {
    const CMPIBroker* mb = broker.cmpi();
    CMPIStatus st{CMPI_RC_OK, nullptr};
    CMPIString* s = mb->eft->newString(mb, text.c_str(), &st);
    if (!s || st.rc != CMPI_RC_OK)
        throw CimValueCodec::Error("newString failed: " + statusText(st));
    return s;
}

const char* stringOf(const CMPIString* s) {
    if (!s || !s->ft)
        return nullptr;
    return s->ft->getCharPtr(s, nullptr);
}

std::string escaped(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        default:
            if (c < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\x%02X", c);
                out += buf;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    return out;
}

std::string realText(double d) {
    if (std::isnan(d))
        return "NaN";
    if (std::isinf(d))
        return d < 0 ? "-Infinity" : "Infinity";
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.17g", d);
    // The shortest text that reads back to the same value.
    for (int prec = 1; prec <= 17; ++prec) {
        char shorter[40];
        std::snprintf(shorter, sizeof shorter, "%.*g", prec, d);
        if (std::strtod(shorter, nullptr) == d) {
            std::memcpy(buf, shorter, sizeof buf);
            break;
        }
    }
    std::string out = buf;
    if (out.find_first_of(".eEn") == std::string::npos)
        out += ".0";
    return out;
}

std::string pathText(const CMPIObjectPath* op) {
    if (!op || !op->ft)
        return {};
    CMPIString* s = op->ft->toString(op, nullptr);
    const char* text = stringOf(s);
    std::string out = text ? text : "";
    if (s && s->ft)
        s->ft->release(s);
    return out;
}

std::string dateTimeText(const CMPIDateTime* dt) {
    if (!dt || !dt->ft)
        return {};
    CMPIString* s = dt->ft->getStringFormat(dt, nullptr);
    const char* text = stringOf(s);
    std::string out = text ? text : "";
    if (s && s->ft)
        s->ft->release(s);
    return out;
}

enum class Style { Mof, Plain };

std::string scalarText(CMPIType type, const CMPIValue& v, Style style) {
    switch (type) {
    case CMPI_boolean:
        if (style == Style::Mof)
            return v.boolean ? "TRUE" : "FALSE";
        return v.boolean ? "true" : "false";
    case CMPI_char16:
        return style == Style::Mof ? "'" + escaped(char16Text(v.char16)) + "'"
                                   : char16Text(v.char16);
    case CMPI_real32:
        return realText(v.real32);
    case CMPI_real64:
        return realText(v.real64);
    case CMPI_uint8:
        return std::to_string(v.uint8);
    case CMPI_uint16:
        return std::to_string(v.uint16);
    case CMPI_uint32:
        return std::to_string(v.uint32);
    case CMPI_uint64:
        return std::to_string(v.uint64);
    case CMPI_sint8:
        return std::to_string(v.sint8);
    case CMPI_sint16:
        return std::to_string(v.sint16);
    case CMPI_sint32:
        return std::to_string(v.sint32);
    case CMPI_sint64:
        return std::to_string(v.sint64);
    case CMPI_string:
    case CMPI_chars: {
        const char* text = type == CMPI_chars ? v.chars : stringOf(v.string);
        if (!text)
            return "NULL";
        return style == Style::Mof ? "\"" + escaped(text) + "\"" : std::string(text);
    }
    case CMPI_dateTime: {
        std::string text = dateTimeText(v.dateTime);
        return style == Style::Mof ? "\"" + text + "\"" : text;
    }
    case CMPI_ref: {
        std::string text = pathText(v.ref);
        return style == Style::Mof ? "\"" + escaped(text) + "\"" : text;
    }
    case CMPI_instance: {
        if (!v.inst || !v.inst->ft)
            return "NULL";
        CMPIObjectPath* op = v.inst->ft->getObjectPath(v.inst, nullptr);
        std::string text = "instance " + pathText(op);
        if (op && op->ft)
            op->ft->release(op);
        return text;
    }
    default:
        return "<type " + std::to_string(type) + ">";
    }
}

std::string dataText(const CMPIData& d, Style style) {
    if (d.state & (CMPI_nullValue | CMPI_notFound | CMPI_badValue))
        return "NULL";
    if (!(d.type & CMPI_ARRAY))
        return scalarText(d.type, d.value, style);
    const CMPIArray* a = d.value.array;
    if (!a || !a->ft)
        return "NULL";
    CMPICount n = a->ft->getSize(a, nullptr);
    std::string out = "{";
    for (CMPICount i = 0; i < n; ++i) {
        if (i)
            out += ", ";
        out += dataText(a->ft->getElementAt(a, i, nullptr), style);
    }
    return out + "}";
}

bool isNull(const CMPIData& d) {
    return (d.state & (CMPI_nullValue | CMPI_notFound)) != 0 || d.type == CMPI_null;
}

bool isIntegerType(CMPIType t) {
    return isUnsignedType(t) || isSignedType(t);
}

// Sign and magnitude of an integer value.
void integerParts(const CMPIData& d, bool& negative, unsigned long long& mag) {
    negative = false;
    switch (d.type) {
    case CMPI_uint8:
        mag = d.value.uint8;
        return;
    case CMPI_uint16:
        mag = d.value.uint16;
        return;
    case CMPI_uint32:
        mag = d.value.uint32;
        return;
    case CMPI_uint64:
        mag = d.value.uint64;
        return;
    default:
        break;
    }
    long long s = d.type == CMPI_sint8    ? d.value.sint8
                  : d.type == CMPI_sint16 ? d.value.sint16
                  : d.type == CMPI_sint32 ? d.value.sint32
                                          : d.value.sint64;
    negative = s < 0;
    mag = negative ? 0ull - static_cast<unsigned long long>(s) : static_cast<unsigned long long>(s);
}

std::string lowerText(const char* s) {
    std::string out = s ? s : "";
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

std::string stringField(CMPIString* s) {
    const char* text = stringOf(s);
    return text ? text : "";
}

} // namespace

bool CimValueCodec::parseInteger(const std::string& text, bool& negative,
                                 unsigned long long& magnitude) {
    std::size_t i = 0;
    negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    std::string body = text.substr(i);
    if (body.empty())
        return false;
    unsigned base = 10;
    std::size_t from = 0;
    std::size_t to = body.size();
    if (body.size() > 2 && body[0] == '0' && (body[1] == 'x' || body[1] == 'X')) {
        base = 16;
        from = 2;
    } else if (body.size() > 1 && (body.back() == 'b' || body.back() == 'B')) {
        base = 2;
        to = body.size() - 1;
    } else if (body.size() > 1 && body[0] == '0') {
        base = 8;
        from = 1;
    }
    unsigned long long value = 0;
    for (std::size_t k = from; k < to; ++k) {
        unsigned char c = static_cast<unsigned char>(body[k]);
        unsigned digit;
        if (std::isdigit(c))
            digit = c - '0';
        else if (base == 16 && std::isxdigit(c))
            digit = static_cast<unsigned>(std::tolower(c) - 'a' + 10);
        else
            return false;
        if (digit >= base)
            return false;
        if (value > (std::numeric_limits<unsigned long long>::max() - digit) / base)
            return false;
        value = value * base + digit;
    }
    magnitude = value;
    return true;
}

bool CimValueCodec::parseReal(const std::string& text, double& value) {
    std::size_t i = 0;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        ++i;
    bool digits = false;
    bool dotOrExp = false;
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
        ++i;
        digits = true;
    }
    if (i < text.size() && text[i] == '.') {
        dotOrExp = true;
        ++i;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
            ++i;
            digits = true;
        }
    }
    if (!digits)
        return false;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        dotOrExp = true;
        ++i;
        if (i < text.size() && (text[i] == '+' || text[i] == '-'))
            ++i;
        bool expDigits = false;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
            ++i;
            expDigits = true;
        }
        if (!expDigits)
            return false;
    }
    if (i != text.size() || !dotOrExp)
        return false;
    errno = 0;
    value = std::strtod(text.c_str(), nullptr);
    return errno != ERANGE || std::isfinite(value);
}

CMPIData CimValueCodec::fromLiteral(Broker& broker, Kind kind, const std::string& text,
                                    CimTypeCode type, const std::string& ns) {
    CMPIData d{};
    d.type = type;
    d.state = CMPI_goodValue;
    if (type & CMPI_ARRAY)
        throw Error(std::string("a single ") + kindName(kind) + " value cannot be an array");
    if (kind == Kind::Null) {
        d.state = CMPI_nullValue;
        return d;
    }
    const CMPIBroker* mb = broker.cmpi();
    switch (type) {
    case CMPI_boolean: {
        if (kind != Kind::Boolean)
            mismatch(kind, text, type);
        std::string t = lowerText(text.c_str());
        if (t != "true" && t != "false")
            throw Error("\"" + text + "\" is not TRUE or FALSE");
        d.value.boolean = t == "true";
        return d;
    }
    case CMPI_char16:
        if (kind != Kind::Char && kind != Kind::String)
            mismatch(kind, text, type);
        d.value.char16 = charValue(text);
        return d;
    case CMPI_real32:
    case CMPI_real64: {
        double v = 0;
        bool negative = false;
        unsigned long long mag = 0;
        bool ok = false;
        if (kind == Kind::Integer && parseInteger(text, negative, mag)) {
            v = negative ? -static_cast<double>(mag) : static_cast<double>(mag);
            ok = true;
        } else if (kind == Kind::Real) {
            ok = parseReal(text, v);
        }
        if (!ok)
            mismatch(kind, text, type);
        if (type == CMPI_real32) {
            if (std::isfinite(v) && std::fabs(v) > std::numeric_limits<float>::max())
                throw Error(text + " is out of range for real32");
            d.value.real32 = static_cast<CMPIReal32>(v);
        } else {
            d.value.real64 = v;
        }
        return d;
    }
    case CMPI_uint8:
    case CMPI_uint16:
    case CMPI_uint32:
    case CMPI_uint64:
    case CMPI_sint8:
    case CMPI_sint16:
    case CMPI_sint32:
    case CMPI_sint64:
        if (kind != Kind::Integer)
            mismatch(kind, text, type);
        d.value = integerValue(text, type);
        return d;
    case CMPI_string:
        if (kind != Kind::String && kind != Kind::Char)
            mismatch(kind, text, type);
        d.value.string = makeString(broker, text);
        return d;
    case CMPI_dateTime: {
        if (kind != Kind::String)
            mismatch(kind, text, type);
        CMPIStatus st{CMPI_RC_OK, nullptr};
        d.value.dateTime = mb->eft->newDateTimeFromChars(mb, text.c_str(), &st);
        if (!d.value.dateTime || st.rc != CMPI_RC_OK)
            throw Error("\"" + text + "\" is not a CIM datetime");
        return d;
    }
    case CMPI_ref:
        if (kind != Kind::String && kind != Kind::Reference)
            mismatch(kind, text, type);
        try {
            d.value.ref = ObjectPathText::toCmpi(broker, text, ns);
        } catch (const ObjectPathError& e) {
            throw Error(e.what());
        }
        return d;
    default:
        throw Error("values of type code " + std::to_string(type) + " are not supported");
    }
}

CMPIData CimValueCodec::fromMof(Broker& broker, const MofValue& value, CimTypeCode type,
                                const std::string& ns) {
    if (value.kind == Kind::Null) {
        CMPIData d{};
        d.type = type;
        d.state = CMPI_nullValue;
        return d;
    }
    bool arrayType = (type & CMPI_ARRAY) != 0;
    if (!arrayType) {
        if (value.array)
            throw Error(std::string("an array cannot be ") + typeName(type));
        if (value.elements.size() != 1)
            throw Error("a single value holds exactly one element");
        return fromLiteral(broker, value.kind, value.elements[0], type, ns);
    }
    CimTypeCode elementType = type & ~CMPI_ARRAY;
    const CMPIBroker* mb = broker.cmpi();
    CMPIStatus st{CMPI_RC_OK, nullptr};
    CMPIArray* array =
        mb->eft->newArray(mb, static_cast<CMPICount>(value.elements.size()), elementType, &st);
    if (!array || st.rc != CMPI_RC_OK)
        throw Error("newArray failed: " + statusText(st));
    for (std::size_t i = 0; i < value.elements.size(); ++i) {
        CMPIData e = fromLiteral(broker, value.kind, value.elements[i], elementType, ns);
        CMPIStatus set =
            array->ft->setElementAt(array, static_cast<CMPICount>(i), &e.value, elementType);
        if (set.rc != CMPI_RC_OK)
            throw Error("setElementAt failed: " + statusText(set));
    }
    CMPIData d{};
    d.type = type;
    d.state = CMPI_goodValue;
    d.value.array = array;
    return d;
}

CMPIData CimValueCodec::fromUntypedLiteral(Broker& broker, Kind kind, const std::string& text,
                                           const std::string& ns) {
    switch (kind) {
    case Kind::String:
        return fromLiteral(broker, kind, text, CMPI_string, ns);
    case Kind::Char:
        return fromLiteral(broker, kind, text, CMPI_char16, ns);
    case Kind::Boolean:
        return fromLiteral(broker, kind, text, CMPI_boolean, ns);
    case Kind::Real:
        return fromLiteral(broker, kind, text, CMPI_real64, ns);
    case Kind::Reference:
        return fromLiteral(broker, kind, text, CMPI_ref, ns);
    case Kind::Integer: {
        bool negative = false;
        unsigned long long mag = 0;
        if (!parseInteger(text, negative, mag))
            throw Error("\"" + text + "\" is not an integer");
        bool fitsSigned = negative ? mag <= (1ull << 63) : mag < (1ull << 63);
        return fromLiteral(broker, kind, text, fitsSigned ? CMPI_sint64 : CMPI_uint64, ns);
    }
    case Kind::Null:
        break;
    }
    CMPIData d{};
    d.type = CMPI_null;
    d.state = CMPI_nullValue;
    return d;
}

std::string CimValueCodec::mofText(const CMPIData& data) {
    return dataText(data, Style::Mof);
}

std::string CimValueCodec::plainText(const CMPIData& data) {
    return dataText(data, Style::Plain);
}

bool CimValueCodec::equal(const CMPIData& a, const CMPIData& b) {
    bool aNull = isNull(a);
    bool bNull = isNull(b);
    if (aNull || bNull)
        return aNull && bNull;
    if ((a.type & CMPI_ARRAY) || (b.type & CMPI_ARRAY)) {
        if (!(a.type & CMPI_ARRAY) || !(b.type & CMPI_ARRAY))
            return false;
        const CMPIArray* x = a.value.array;
        const CMPIArray* y = b.value.array;
        if (!x || !y || !x->ft || !y->ft)
            return x == y;
        CMPICount n = x->ft->getSize(x, nullptr);
        if (n != y->ft->getSize(y, nullptr))
            return false;
        for (CMPICount i = 0; i < n; ++i)
            if (!equal(x->ft->getElementAt(x, i, nullptr), y->ft->getElementAt(y, i, nullptr)))
                return false;
        return true;
    }
    if (isIntegerType(a.type) && isIntegerType(b.type)) {
        bool an = false;
        bool bn = false;
        unsigned long long am = 0;
        unsigned long long bm = 0;
        integerParts(a, an, am);
        integerParts(b, bn, bm);
        return am == bm && (an == bn || am == 0);
    }
    bool aReal = a.type == CMPI_real32 || a.type == CMPI_real64;
    bool bReal = b.type == CMPI_real32 || b.type == CMPI_real64;
    if (aReal && bReal) {
        double x = a.type == CMPI_real32 ? a.value.real32 : a.value.real64;
        double y = b.type == CMPI_real32 ? b.value.real32 : b.value.real64;
        return x == y;
    }
    bool aText = a.type == CMPI_string || a.type == CMPI_chars;
    bool bText = b.type == CMPI_string || b.type == CMPI_chars;
    if (aText && bText) {
        const char* x = a.type == CMPI_chars ? a.value.chars : stringOf(a.value.string);
        const char* y = b.type == CMPI_chars ? b.value.chars : stringOf(b.value.string);
        if (!x || !y)
            return x == y;
        return std::strcmp(x, y) == 0;
    }
    if (a.type != b.type)
        return false;
    switch (a.type) {
    case CMPI_boolean:
        return (a.value.boolean != 0) == (b.value.boolean != 0);
    case CMPI_char16:
        return a.value.char16 == b.value.char16;
    case CMPI_dateTime:
        return dateTimeText(a.value.dateTime) == dateTimeText(b.value.dateTime);
    case CMPI_ref:
        return samePath(a.value.ref, b.value.ref);
    default:
        return false;
    }
}

bool CimValueCodec::samePath(const CMPIObjectPath* a, const CMPIObjectPath* b) {
    if (!a || !b || !a->ft || !b->ft)
        return a == b;
    if (lowerText(stringOf(a->ft->getClassName(a, nullptr))) !=
        lowerText(stringOf(b->ft->getClassName(b, nullptr))))
        return false;
    std::string nsA = lowerText(stringOf(a->ft->getNameSpace(a, nullptr)));
    std::string nsB = lowerText(stringOf(b->ft->getNameSpace(b, nullptr)));
    if (!nsA.empty() && !nsB.empty() && nsA != nsB)
        return false;
    CMPICount n = a->ft->getKeyCount(a, nullptr);
    if (n != b->ft->getKeyCount(b, nullptr))
        return false;
    for (CMPICount i = 0; i < n; ++i) {
        CMPIString* name = nullptr;
        CMPIData ka = a->ft->getKeyAt(a, i, &name, nullptr);
        std::string keyName = stringField(name);
        CMPIStatus st{CMPI_RC_OK, nullptr};
        CMPIData kb = b->ft->getKey(b, keyName.c_str(), &st);
        if (st.rc != CMPI_RC_OK || !equal(ka, kb))
            return false;
    }
    return true;
}

} // namespace NQORVA20::host
