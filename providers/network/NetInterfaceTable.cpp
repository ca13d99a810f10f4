#include "providers/network/NetInterfaceTable.h"

#include "providers/common/EnvironmentSetting.h"
#include "providers/common/SmallTextFile.h"
#include "providers/common/SystemErrorText.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace NQORVA20::providers {

namespace {

constexpr unsigned long long loopbackLinkType = 772; // ARPHRD_LOOPBACK
constexpr unsigned long loopbackFlag = 0x8;          // IFF_LOOPBACK

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

} // namespace

std::string NetInterfaceTable::sysfsRoot() {
    const std::string fake = EnvironmentSetting::text("ZORQ_NET_SYSFS");
    return fake.empty() ? "/sys/class/net" : fake;
}

bool NetInterfaceTable::isValidName(const std::string& name) {
    if (name.empty() || name.size() > 15 || name == "." || name == "..")
        return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return std::isgraph(static_cast<unsigned char>(c)) && c != '/' && c != ':';
    });
}

std::vector<NetInterfaceTable::Interface> NetInterfaceTable::list(const std::string& root) {
    std::unique_ptr<DIR, DirCloser> dir(::opendir(root.c_str()));
    if (!dir)
        throw std::runtime_error("cannot list " + root + ": " + SystemErrorText::describe(errno));
    std::vector<Interface> found;
    while (const dirent* entry = ::readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (!isValidName(name))
            continue;
        const std::string directory = root + "/" + name;
        struct stat info;
        if (::stat(directory.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
            continue;
        found.push_back({name, directory});
    }
    std::sort(found.begin(), found.end(),
              [](const Interface& a, const Interface& b) { return a.name < b.name; });
    return found;
}

std::optional<std::string> NetInterfaceTable::attribute(const std::string& directory,
                                                        const std::string& name,
                                                        std::string* error) {
    return SmallTextFile::read(directory + "/" + name, error);
}

std::optional<unsigned long long> NetInterfaceTable::number(const std::string& directory,
                                                            const std::string& name,
                                                            std::string* error) {
    return SmallTextFile::readNumber(directory + "/" + name, error);
}

bool NetInterfaceTable::isLoopback(const Interface& interface) {
    if (const auto type = number(interface.directory, "type"))
        return *type == loopbackLinkType;
    if (const auto flags = attribute(interface.directory, "flags")) {
        char* end = nullptr;
        errno = 0;
        const unsigned long value = std::strtoul(flags->c_str(), &end, 16);
        if (end != flags->c_str() && *end == '\0' && errno == 0)
            return (value & loopbackFlag) != 0;
    }
    return interface.name == "lo";
}

} // namespace NQORVA20::providers
