// Object paths as text, and the two facts the core asks the object manager for (the current
// date and time, the managed system's name).
//
// Object-path text: the broker's own rendering of a path with backslash escapes undone and a
// leading host/namespace part removed: the class name, ".", then Key="value" bindings separated
// by commas, blanks or tabs. It is the registry's key and the value text of reference
// properties; equal paths give equal texts as far as the broker renders them alike.
#ifndef DIAGCORE_INSTANCE_CMPIUTIL_H
#define DIAGCORE_INSTANCE_CMPIUTIL_H

#include "common/Export.h"
#include "instance/InstanceImpl.h"

#include <cmpidt.h>

#include <string>

namespace NQORVA20 {
namespace CMPIUtil {

// The path's class name; empty for a null path.
DIAGCORE_EXPORT std::string GetClassName(const CMPIObjectPath* path);
// The object-path text of a path; empty for a null path or rendering.
DIAGCORE_EXPORT std::string GetObjectPathString(const CMPIObjectPath* path);
// The text without a leading host and namespace part (everything up to the first ':'), unless
// it starts with the class name (a '.' comes before any '/' or ':').
DIAGCORE_EXPORT std::string StripObjectPath(std::string text);
// Fills the instance object's class name and one property per key binding of the text. Stops at
// the first binding it cannot read, keeping those read before it; never loops or throws on
// malformed text.
DIAGCORE_EXPORT void ParseObjectPath(std::string& text, InstanceImpl& instance);
// The current date and time as the 25-character CIM date-time text; empty if the broker fails.
DIAGCORE_EXPORT std::string GetDateTimeString(const CMPIBroker* broker);
// The "Name" of the first ZORQ_ComputerSystem instance in root/cimv2; empty when there is none
// or it has no string "Name".
DIAGCORE_EXPORT std::string GetSystemName(const CMPIBroker* broker, const CMPIContext* ctx);

} // namespace CMPIUtil
} // namespace NQORVA20

#endif
