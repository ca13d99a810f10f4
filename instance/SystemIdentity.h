// This system's name as the providers publish it: the "SystemName" the services and elements
// carry, and the host of every object path the builder makes, so that a client following a
// reference is sent to this system and not to its own. A provider records it once it has worked
// it out (the object manager's computer system, or a fallback such as the host name); until
// then paths carry "localhost".
#ifndef DIAGCORE_INSTANCE_SYSTEMIDENTITY_H
#define DIAGCORE_INSTANCE_SYSTEMIDENTITY_H

#include "common/Export.h"

#include <cmpidt.h>

#include <string>

namespace NQORVA20 {

class DIAGCORE_EXPORT SystemIdentity {
public:
    // An empty name is ignored; a later name replaces an earlier one.
    static void Record(const std::string& name);
    // Forgets the recorded name (paths carry "localhost" again).
    static void Clear();
    // The recorded name; empty until one is recorded.
    static std::string Name();
    // The recorded name, or "localhost".
    static std::string HostName();
    // Whether a path's host names this system: no host, a loopback or any address literal (an
    // object manager may put its own address there), or a name that is the recorded one or
    // shares its first label with it (a short and a fully qualified name of one machine), in any
    // letter case. Any other name is another system's.
    static bool IsThisSystem(const std::string& host);
    // Whether a path's namespace is the one the core publishes in: none, or "root/cimv2" in any
    // letter case.
    static bool IsPublishedNamespace(const std::string& nameSpace);
    // Both, for the host and namespace of a path; a null path is nowhere.
    static bool IsLocalPath(const CMPIObjectPath* path);
};

} // namespace NQORVA20

#endif
