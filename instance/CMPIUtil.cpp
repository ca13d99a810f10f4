#include "instance/CMPIUtil.h"

#include "common/Constants.h"
#include "common/ProviderScope.h"

#include <cmpift.h>
#include <cmpimacs.h>

#include <string_view>

namespace NQORVA20 {
namespace CMPIUtil {

namespace {

std::string textOf(const CMPIString* s) {
    if (s == nullptr || s->ft == nullptr)
        return std::string();
    const char* chars = s->ft->getCharPtr(s, nullptr);
    return chars ? std::string(chars) : std::string();
}

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
    if (path == nullptr || path->ft == nullptr)
        return std::string();
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    return textOf(path->ft->getClassName(path, &status));
}

std::string GetObjectPathString(const CMPIObjectPath* path) {
    if (path == nullptr || path->ft == nullptr)
        return std::string();
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    return StripObjectPath(unescape(textOf(path->ft->toString(path, &status))));
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
    if (broker == nullptr || broker->eft == nullptr)
        return std::string();
    CMPIDateTime* now = broker->eft->newDateTime(broker, nullptr);
    if (now == nullptr || now->ft == nullptr)
        return std::string();
    return textOf(now->ft->getStringFormat(now, nullptr));
}

std::string GetSystemName(const CMPIBroker* broker, const CMPIContext* ctx) {
    if (broker == nullptr || broker->eft == nullptr || broker->bft == nullptr)
        return std::string();
    CMPIObjectPath* path =
        broker->eft->newObjectPath(broker, cimNameSpace, "ZORQ_ComputerSystem", nullptr);
    if (path == nullptr)
        return std::string();
    CMPIEnumeration* systems = nullptr;
    {
        ProviderScope::StartupUpcall upcall("ZORQ_ComputerSystem");
        systems = CBEnumInstances(broker, ctx, path, nullptr, nullptr);
    }
    if (systems == nullptr || systems->ft == nullptr || !systems->ft->hasNext(systems, nullptr))
        return std::string();
    // The element is read as an instance whatever its state says: an object manager may mark a
    // valid instance null in an enumeration.
    CMPIData first = systems->ft->getNext(systems, nullptr);
    CMPIInstance* system = first.value.inst;
    if (first.type != CMPI_instance || system == nullptr || system->ft == nullptr)
        return std::string();
    CMPIData name = system->ft->getProperty(system, "Name", nullptr);
    if (name.type != CMPI_string || (name.state & CMPI_nullValue))
        return std::string();
    return textOf(name.value.string);
}

} // namespace CMPIUtil
} // namespace NQORVA20
