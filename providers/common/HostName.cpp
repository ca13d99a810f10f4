#include "providers/common/HostName.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <climits>
#include <cstring>

namespace NQORVA20::providers {

std::string HostName::plain() {
    char buffer[HOST_NAME_MAX + 2] = {0};
    if (gethostname(buffer, sizeof buffer - 1) != 0 || buffer[0] == '\0')
        return "localhost";
    return buffer;
}

std::string HostName::fullyQualified() {
    const std::string name = plain();
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_CANONNAME;
    addrinfo* found = nullptr;
    if (getaddrinfo(name.c_str(), nullptr, &hints, &found) != 0 || found == nullptr)
        return name;
    std::string canonical =
        found->ai_canonname != nullptr ? std::string(found->ai_canonname) : std::string();
    freeaddrinfo(found);
    return canonical.empty() ? name : canonical;
}

} // namespace NQORVA20::providers
