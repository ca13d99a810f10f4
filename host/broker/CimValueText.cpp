#include "host/broker/CimValueText.h"

#include "host/text/LiteralText.h"

#include <cmpift.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace diaghost {

namespace {

std::string escaped(const std::string& text) {
    std::string out;
    LiteralText::appendEscaped(out, text, '"', LiteralText::Controls::All);
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
    const char* text = CimValueText::chars(s);
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
        return style == Style::Mof ? "'" + escaped(LiteralText::char16Utf8(v.char16)) + "'"
                                   : LiteralText::char16Utf8(v.char16);
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
        const char* text = type == CMPI_chars ? v.chars : CimValueText::chars(v.string);
        if (!text)
            return "NULL";
        return style == Style::Mof ? "\"" + escaped(text) + "\"" : std::string(text);
    }
    case CMPI_dateTime: {
        std::string text = CimValueText::dateTimeText(v.dateTime);
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

} // namespace

const char* CimValueText::chars(const CMPIString* s) {
    if (!s || !s->ft)
        return nullptr;
    return s->ft->getCharPtr(s, nullptr);
}

std::string CimValueText::text(const CMPIString* s) {
    const char* p = chars(s);
    return p ? p : "";
}

std::string CimValueText::dateTimeText(const CMPIDateTime* dt) {
    if (!dt || !dt->ft)
        return {};
    CMPIString* s = dt->ft->getStringFormat(dt, nullptr);
    const char* text = chars(s);
    std::string out = text ? text : "";
    if (s && s->ft)
        s->ft->release(s);
    return out;
}

std::string CimValueText::mofText(const CMPIData& data) {
    return dataText(data, Style::Mof);
}

std::string CimValueText::plainText(const CMPIData& data) {
    return dataText(data, Style::Plain);
}

} // namespace diaghost
