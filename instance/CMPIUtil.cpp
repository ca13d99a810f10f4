#include "instance/CMPIUtil.h"

#include "common/CmpiBoundary.h"

#include <cmpift.h>

#include <string_view>

namespace NQORVA20 {
namespace CMPIUtil {

namespace {

// Undoes backslash escapes in one left-to-right pass: \n, \r and \t become the control
// characters, any other escaped character stands for itself, and a trailing backslash vanishes.
std::string unescape(std::string text) {
    std::size_t i = text.find('\\');
    if (i == std::string::npos)
        return text;
    std::string out;
    out.reserve(text.size());
    std::size_t from = 0;
    while (i != std::string::npos) {
        // The run before the backslash is copied whole.
        out.append(text, from, i - from);
        if (++i == text.size())
            return out;
        char c = text[i];
        if (c == 'n')
            c = '\n';
        else if (c == 'r')
            c = '\r';
        else if (c == 't')
            c = '\t';
        out.push_back(c);
        from = i + 1;
        i = text.find('\\', from);
    }
    out.append(text, from, std::string::npos);
    return out;
}

} // namespace

std::string GetClassName(const CMPIObjectPath* path) {
    if (!CmpiBoundary::usable(path))
        return std::string();
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    return CmpiBoundary::text(path->ft->getClassName(path, &status));
}

std::string GetObjectPathString(const CMPIObjectPath* path) {
    if (!CmpiBoundary::usable(path))
        return std::string();
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    return StripObjectPath(unescape(CmpiBoundary::text(path->ft->toString(path, &status))));
}

std::string StripObjectPath(std::string text) {
    std::size_t first = text.find_first_of("./:");
    if (first == std::string::npos || text[first] == '.')
        return text;
    std::size_t colon = text.find(':');
    if (colon == std::string::npos)
        return text;
    text.erase(0, colon + 1);
    return text;
}

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

} // namespace

void ParseObjectPath(std::string& text, InstanceImpl& instance) {
    const std::string strippedText = StripObjectPath(text);
    const std::string_view stripped(strippedText);
    const std::size_t length = stripped.size();
    const std::size_t dot = stripped.find('.');
    instance.setClassName(std::string(stripped.substr(0, dot)));
    if (dot == std::string::npos)
        return; // a class name alone has no bindings
    std::size_t pos = dot + 1;
    while (pos < length) {
        std::size_t nameStart = pos;
        while (nameStart < length && (stripped[nameStart] == ',' || isBlank(stripped[nameStart])))
            ++nameStart;
        if (nameStart == length)
            return; // only separators left
        std::size_t nameEnd = nameStart;
        while (nameEnd < length && stripped[nameEnd] != '=' && !isBlank(stripped[nameEnd]))
            ++nameEnd;
        if (nameEnd == length)
            return;
        const std::size_t open = stripped.find('"', nameEnd);
        if (open == std::string::npos)
            return;
        const std::size_t close = stripped.find('"', open + 1);
        if (close == std::string::npos)
            return;
        instance[std::string(stripped.substr(nameStart, nameEnd - nameStart))].assign(
            stripped.substr(open + 1, close - open - 1));
        pos = close + 1;
    }
}

std::string GetDateTimeString(const CMPIBroker* broker) {
    if (!CmpiBoundary::brokerUsable(broker))
        return std::string();
    CMPIDateTime* now = broker->eft->newDateTime(broker, nullptr);
    if (!CmpiBoundary::usable(now))
        return std::string();
    return CmpiBoundary::text(now->ft->getStringFormat(now, nullptr));
}

std::string GetSystemName(const CMPIBroker* broker, const CMPIContext* ctx) {
    CMPIInstance* system = nullptr;
    if (!CmpiBoundary::next(CmpiBoundary::enumInstances(broker, ctx, "ZORQ_ComputerSystem"),
                            &system) ||
        system == nullptr)
        return std::string();
    CMPIData name = system->ft->getProperty(system, "Name", nullptr);
    if (name.type != CMPI_string || (name.state & CMPI_nullValue))
        return std::string();
    return CmpiBoundary::text(name.value.string);
}

} // namespace CMPIUtil
} // namespace NQORVA20
