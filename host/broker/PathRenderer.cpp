#include "host/broker/PathRenderer.h"

#include "host/text/LiteralText.h"

#include "host/broker/HostArray.h"
#include "host/broker/HostDateTime.h"
#include "host/broker/HostInstance.h"
#include "host/broker/HostObjectPath.h"
#include "host/broker/HostString.h"
#include "host/mof/CimClass.h"
#include "host/text/CimNames.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <vector>

namespace diaghost {

namespace {

template <class T>
void appendNumber(std::string& out, T value) {
    char buf[32];
    auto result = std::to_chars(buf, buf + sizeof buf, value);
    out.append(buf, result.ptr);
}

void appendEscaped(std::string& out, const char* text, std::size_t length) {
    LiteralText::appendEscaped(out, std::string_view(text, length), '"',
                               LiteralText::Controls::Kept);
}

void appendQuoted(std::string& out, const char* text, std::size_t length, bool escape) {
    out.push_back('"');
    if (escape)
        appendEscaped(out, text, length);
    else
        out.append(text, length);
    out.push_back('"');
}

// Scalars that read the same in every dialect and in MOF; false for other types.
bool appendPlainNumber(std::string& out, const CMPIData& v) {
    switch (v.type) {
    case CMPI_uint8:
        appendNumber(out, v.value.uint8);
        return true;
    case CMPI_uint16:
        appendNumber(out, v.value.uint16);
        return true;
    case CMPI_uint32:
        appendNumber(out, v.value.uint32);
        return true;
    case CMPI_uint64:
        appendNumber(out, v.value.uint64);
        return true;
    case CMPI_sint8:
        appendNumber(out, static_cast<int>(v.value.sint8));
        return true;
    case CMPI_sint16:
        appendNumber(out, v.value.sint16);
        return true;
    case CMPI_sint32:
        appendNumber(out, v.value.sint32);
        return true;
    case CMPI_sint64:
        appendNumber(out, v.value.sint64);
        return true;
    case CMPI_real32:
        appendNumber(out, v.value.real32);
        return true;
    case CMPI_real64:
        appendNumber(out, v.value.real64);
        return true;
    default:
        return false;
    }
}

} // namespace

std::string PathRenderer::render(const HostObjectPath& path, PathDialect dialect) {
    std::string out;
    out.reserve(64);
    append(out, path, dialect);
    return out;
}

void PathRenderer::append(std::string& out, const HostObjectPath& path, PathDialect dialect) {
    const bool pegasus = dialect == PathDialect::Pegasus;
    if (pegasus && !path.host().empty()) {
        out += "//";
        out += path.host();
        out += '/';
    }
    if (!path.nameSpace().empty()) {
        out += path.nameSpace();
        out += ':';
    }
    out += path.className();
    const auto& keys = path.keys();
    if (keys.empty())
        return;
    out += '.';

    using Key = HostObjectPath::Key;
    auto appendKey = [&](const Key& k) {
        out += k.name;
        out += '=';
        appendKeyValue(out, k.value, dialect);
    };
    if (!pegasus) {
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (i)
                out += ',';
            appendKey(keys[i]);
        }
        return;
    }
    // Sorted by name without regard to case; equal names keep their order.
    auto before = [](const Key* a, const Key* b) {
        for (const char *x = a->name, *y = b->name;; ++x, ++y) {
            char cx = foldCase(*x), cy = foldCase(*y);
            if (cx != cy)
                return static_cast<unsigned char>(cx) < static_cast<unsigned char>(cy);
            if (!cx)
                return false;
        }
    };
    const Key* small[8];
    std::vector<const Key*> large;
    const Key** order = small;
    if (keys.size() > 8) {
        large.resize(keys.size());
        order = large.data();
    }
    for (std::size_t i = 0; i < keys.size(); ++i)
        order[i] = &keys[i];
    std::stable_sort(order, order + keys.size(), before);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (i)
            out += ',';
        appendKey(*order[i]);
    }
}

void PathRenderer::appendKeyValue(std::string& out, const CMPIData& v, PathDialect dialect) {
    const bool pegasus = dialect == PathDialect::Pegasus;
    const bool null = (v.state & CMPI_nullValue) != 0;
    switch (v.type) {
    case CMPI_string: {
        const char* text = null ? nullptr : HostString::textOf(v.value.string);
        appendQuoted(out, text ? text : "", text ? std::strlen(text) : 0, pegasus);
        return;
    }
    case CMPI_dateTime: {
        HostDateTime* dt = null ? nullptr : HostDateTime::from(v.value.dateTime);
        std::string text = dt ? dt->text() : std::string();
        appendQuoted(out, text.data(), text.size(), pegasus);
        return;
    }
    case CMPI_char16: {
        std::string text = null ? std::string() : LiteralText::char16Utf8(v.value.char16);
        appendQuoted(out, text.data(), text.size(), pegasus);
        return;
    }
    case CMPI_ref: {
        HostObjectPath* inner = null ? nullptr : HostObjectPath::from(v.value.ref);
        std::string text = inner ? render(*inner, dialect) : std::string();
        if (pegasus)
            appendQuoted(out, text.data(), text.size(), true);
        else
            out += text;
        return;
    }
    case CMPI_boolean:
        if (!null)
            out += v.value.boolean ? (pegasus ? "TRUE" : "true") : (pegasus ? "FALSE" : "false");
        return;
    default:
        if (!null)
            appendPlainNumber(out, v);
        return;
    }
}

void PathRenderer::appendMofValue(std::string& out, const CMPIData& v, PathDialect dialect) {
    if (v.state & CMPI_nullValue) {
        out += "NULL";
        return;
    }
    if (v.type & CMPI_ARRAY) {
        HostArray* a = HostArray::from(v.value.array);
        out += '{';
        for (CMPICount i = 0; a && i < a->size(); ++i) {
            if (i)
                out += ", ";
            appendMofValue(out, a->at(i), dialect);
        }
        out += '}';
        return;
    }
    switch (v.type) {
    case CMPI_string: {
        const char* text = HostString::textOf(v.value.string);
        if (!text)
            out += "NULL";
        else
            appendQuoted(out, text, std::strlen(text), true);
        return;
    }
    case CMPI_char16: {
        std::string text = LiteralText::char16Utf8(v.value.char16);
        out += '\'';
        appendEscaped(out, text.data(), text.size());
        out += '\'';
        return;
    }
    case CMPI_boolean:
        out += v.value.boolean ? "TRUE" : "FALSE";
        return;
    case CMPI_dateTime: {
        HostDateTime* dt = HostDateTime::from(v.value.dateTime);
        std::string text = dt ? dt->text() : std::string();
        appendQuoted(out, text.data(), text.size(), true);
        return;
    }
    case CMPI_ref: {
        HostObjectPath* inner = HostObjectPath::from(v.value.ref);
        std::string text = inner ? render(*inner, dialect) : std::string();
        appendQuoted(out, text.data(), text.size(), true);
        return;
    }
    case CMPI_instance: {
        HostInstance* inst = HostInstance::from(v.value.inst);
        if (!inst) {
            out += "NULL";
            return;
        }
        std::string text = renderInstance(*inst, dialect);
        // Embedded: without the closing ";" and the final line break.
        if (text.size() >= 2)
            text.resize(text.size() - 2);
        out += text;
        return;
    }
    default:
        if (!appendPlainNumber(out, v))
            out += "NULL";
        return;
    }
}

std::string PathRenderer::renderInstance(const HostInstance& instance, PathDialect dialect) {
    std::string out = "instance of ";
    out += instance.cimClass().name;
    out += " {\n";
    for (std::size_t i = 0; i < instance.propertyCount(); ++i) {
        const CMPIData& v = instance.at(i);
        if (v.state & CMPI_nullValue)
            continue;
        out += "    ";
        out += instance.propertyName(i);
        out += " = ";
        appendMofValue(out, v, dialect);
        out += ";\n";
    }
    out += "};\n";
    return out;
}

} // namespace diaghost
