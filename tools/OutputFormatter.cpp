#include "tools/OutputFormatter.h"

#include "host/Host.h"
#include "host/broker/CallScope.h"
#include "host/broker/CimValueText.h"

#include <cmpift.h>

#include <cmath>
#include <cstdio>

namespace NQORVA20::tools {

using diaghost::CimValueText;

namespace {

std::string text(const CMPIString* s) {
    if (s == nullptr || s->ft == nullptr)
        return {};
    const char* chars = s->ft->getCharPtr(s, nullptr);
    return chars ? chars : "";
}

bool isNumber(CMPIType type) {
    switch (type) {
    case CMPI_uint8:
    case CMPI_uint16:
    case CMPI_uint32:
    case CMPI_uint64:
    case CMPI_sint8:
    case CMPI_sint16:
    case CMPI_sint32:
    case CMPI_sint64:
        return true;
    default:
        return false;
    }
}

} // namespace

OutputFormatter::OutputFormatter(diaghost::Host& host, Style style, std::ostream& out)
    : host_(host), style_(style), out_(out) {}

std::string OutputFormatter::jsonString(const std::string& text) {
    std::string out = "\"";
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
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (c < 0x20) {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\u%04x", c);
                out += escape;
            } else {
                out.push_back(static_cast<char>(c));
            }
        }
    }
    return out + "\"";
}

std::string OutputFormatter::jsonValue(const CMPIData& data) {
    if (data.state & (CMPI_nullValue | CMPI_notFound))
        return "null";
    if (data.type & CMPI_ARRAY) {
        const CMPIArray* array = data.value.array;
        if (array == nullptr || array->ft == nullptr)
            return "null";
        std::string out = "[";
        const CMPICount n = array->ft->getSize(array, nullptr);
        for (CMPICount i = 0; i < n; ++i) {
            if (i > 0)
                out += ", ";
            out += jsonValue(array->ft->getElementAt(array, i, nullptr));
        }
        return out + "]";
    }
    if (data.type == CMPI_boolean)
        return data.value.boolean ? "true" : "false";
    if (isNumber(data.type))
        return CimValueText::plainText(data);
    if (data.type == CMPI_real32 || data.type == CMPI_real64) {
        const double value = data.type == CMPI_real32 ? data.value.real32 : data.value.real64;
        return std::isfinite(value) ? CimValueText::plainText(data) : "null";
    }
    return jsonString(CimValueText::plainText(data));
}

std::string OutputFormatter::jsonInstance(const CMPIInstance* instance) {
    diaghost::CallScope scope(host_.broker());
    const CMPIObjectPath* path = instance->ft->getObjectPath(instance, nullptr);
    const std::string className =
        path && path->ft ? text(path->ft->getClassName(path, nullptr)) : "";
    std::string out = "{\"class\": " + jsonString(className) +
                      ", \"path\": " + jsonString(host_.pathText(path)) + ", \"properties\": {";
    const CMPICount n = instance->ft->getPropertyCount(instance, nullptr);
    for (CMPICount i = 0; i < n; ++i) {
        CMPIString* name = nullptr;
        const CMPIData value = instance->ft->getPropertyAt(instance, i, &name, nullptr);
        out += (i > 0 ? ", " : "") + jsonString(text(name)) + ": " + jsonValue(value);
    }
    return out + "}}";
}

void OutputFormatter::instances(const std::vector<CMPIInstance*>& instances) {
    if (style_ == Style::Mof) {
        for (const CMPIInstance* instance : instances)
            out_ << host_.mofText(instance) << "\n";
        return;
    }
    out_ << "[";
    for (std::size_t i = 0; i < instances.size(); ++i)
        out_ << (i > 0 ? ",\n " : "") << jsonInstance(instances[i]);
    out_ << "]\n";
}

void OutputFormatter::paths(const std::vector<CMPIObjectPath*>& paths) {
    std::vector<std::string> texts;
    texts.reserve(paths.size());
    for (const CMPIObjectPath* path : paths)
        texts.push_back(host_.pathText(path));
    names(texts);
}

void OutputFormatter::names(const std::vector<std::string>& names) {
    if (style_ == Style::Mof) {
        for (const std::string& name : names)
            out_ << name << "\n";
        return;
    }
    out_ << "[";
    for (std::size_t i = 0; i < names.size(); ++i)
        out_ << (i > 0 ? ",\n " : "") << jsonString(names[i]);
    out_ << "]\n";
}

void OutputFormatter::methodOutcome(const CMPIData& returnValue, const CMPIInstance* record) {
    if (style_ == Style::Mof) {
        out_ << "ReturnValue = " << CimValueText::mofText(returnValue) << ";\n";
        if (record != nullptr)
            out_ << host_.mofText(record) << "\n";
        return;
    }
    out_ << "{\"returnValue\": " << jsonValue(returnValue)
         << ", \"record\": " << (record ? jsonInstance(record) : "null") << "}\n";
}

} // namespace NQORVA20::tools
