// The core's side of the CMPI function tables: each helper makes one broker or object call and
// guards it against what an object manager may hand over (a null object, a null table, a null
// string). Nothing here throws except the std::string ones, and only for memory.
#ifndef DIAGCORE_COMMON_CMPIBOUNDARY_H
#define DIAGCORE_COMMON_CMPIBOUNDARY_H

#include "common/Constants.h"

#include <cmpidt.h>

#include <string>

namespace NQORVA20 {
namespace CmpiBoundary {

// An encapsulated object whose function table can be called.
template <typename Object>
bool usable(const Object* object) noexcept {
    return object != nullptr && object->ft != nullptr;
}

// Gives an object back to the broker; nothing for a null object, table or release function.
template <typename Object>
void release(Object* object) noexcept {
    if (usable(object) && object->ft->release != nullptr)
        object->ft->release(object);
}

// The broker's encapsulated-object functions can be called.
bool brokerUsable(const CMPIBroker* broker) noexcept;

// A string's characters; null when the string, its table or its characters are.
const char* chars(const CMPIString* s) noexcept;
// A string's characters as text; empty for anything chars() gives null for.
std::string text(const CMPIString* s);

// A broker-made string; null without a usable broker.
CMPIString* newString(const CMPIBroker* broker, const char* text) noexcept;
// A status with the given code and, where the broker can make one, a broker-made message.
CMPIStatus status(const CMPIBroker* broker, CMPIrc rc, const char* message) noexcept;
CMPIStatus status(CMPIrc rc) noexcept;

// Result delivery that does nothing on a null result, result table or value.
void returnPath(const CMPIResult* result, const CMPIObjectPath* path) noexcept;
void returnUint32(const CMPIResult* result, CMPIUint32 value) noexcept;
void returnDone(const CMPIResult* result) noexcept;

// A broker-made path of a class; null without a usable broker or when the broker makes none.
CMPIObjectPath* newPath(const CMPIBroker* broker, const char* className,
                        const char* nameSpace = cimNameSpace) noexcept;

// Enumerates a class's instances in "root/cimv2" through the broker, as a start-up upcall (see
// ProviderScope); null without a usable broker or path.
CMPIEnumeration* enumInstances(const CMPIBroker* broker, const CMPIContext* ctx,
                               const std::string& className);
// Steps an enumeration: false at its end (or for a null one); otherwise *instance is the next
// element when it is a usable instance, else null. The element's null state is not looked at:
// an object manager may mark a valid instance null in an enumeration.
bool next(CMPIEnumeration* e, CMPIInstance** instance) noexcept;

// A path's host and namespace as text; empty for a null path or part.
std::string hostName(const CMPIObjectPath* path);
std::string nameSpace(const CMPIObjectPath* path);

} // namespace CmpiBoundary
} // namespace NQORVA20

#endif
