#include "instance/SystemIdentity.h"
#include "common/CmpiBoundary.h"

#include "common/Constants.h"

#include <cmpift.h>

#include <algorithm>
#include <cctype>
#include <mutex>

#include <unistd.h>

namespace NQORVA20 {

namespace {

// Never destroyed: a provider thread may build paths while the process runs its exit handlers.
struct Recorded {
    std::mutex mutex;
    std::string name;
};

Recorded& recorded() {
    static Recorded* kept = new Recorded;
    return *kept;
}

std::string lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string firstLabel(const std::string& name) {
    return name.substr(0, name.find('.'));
}

bool addressLiteral(const std::string& host) {
    if (host.find(':') != std::string::npos || host.front() == '[')
        return true; // IPv6
    return std::all_of(host.begin(), host.end(), [](char c) {
        return c == '.' || std::isdigit(static_cast<unsigned char>(c));
    });
}

} // namespace

void SystemIdentity::Record(const std::string& name) {
    if (name.empty())
        return;
    Recorded& r = recorded();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.name = name;
}

void SystemIdentity::Clear() {
    Recorded& r = recorded();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.name.clear();
}

std::string SystemIdentity::Name() {
    Recorded& r = recorded();
    std::lock_guard<std::mutex> lock(r.mutex);
    return r.name;
}

std::string SystemIdentity::HostName() {
    std::string name = Name();
    return name.empty() ? std::string("localhost") : name;
}

} // namespace NQORVA20

namespace NQORVA20 {

bool SystemIdentity::IsThisSystem(const std::string& host) {
    if (host.empty())
        return true;
    const std::string asked = lower(host);
    if (asked == "localhost" || addressLiteral(asked))
        return true;
    std::string self = lower(Name());
    if (self.empty()) {
        // Nothing recorded yet (a process serving no diagnostic family): this machine's own name.
        char own[256] = {0};
        if (gethostname(own, sizeof own - 1) == 0)
            self = lower(own);
    }
    return !self.empty() && (asked == self || firstLabel(asked) == firstLabel(self));
}

bool SystemIdentity::IsLocalPath(const CMPIObjectPath* path) {
    if (!CmpiBoundary::usable(path))
        return false;
    return IsThisSystem(CmpiBoundary::hostName(path)) &&
           IsPublishedNamespace(CmpiBoundary::nameSpace(path));
}

bool SystemIdentity::IsPublishedNamespace(const std::string& nameSpace) {
    return nameSpace.empty() || lower(nameSpace) == lower(cimNameSpace);
}

} // namespace NQORVA20
