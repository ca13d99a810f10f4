// The name under which this machine is published: its fully qualified host name when the
// resolver knows one, else the plain host name, else "localhost".
#ifndef ZORQ_PROVIDERS_COMMON_HOSTNAME_H
#define ZORQ_PROVIDERS_COMMON_HOSTNAME_H

#include <string>

namespace NQORVA20::providers {

class HostName {
public:
    static std::string plain();
    // The canonical name getaddrinfo gives the plain name (AI_CANONNAME); the plain name when
    // the resolver has none.
    static std::string fullyQualified();
};

} // namespace NQORVA20::providers

#endif
