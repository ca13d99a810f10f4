// Finds the registered association instances that refer to a source object, for the
// associator entry points. They answer with the association instances themselves (or their
// paths), not with the objects at the far end.
#ifndef DIAGCORE_ENTRY_ASSOCIATIONLOOKUP_H
#define DIAGCORE_ENTRY_ASSOCIATIONLOOKUP_H

#include <cmpidt.h>

#include <string>

namespace NQORVA20 {

using ReturnFunction = void (*)(const CMPIResult*, CMPIInstance*);
using ReferenceMatch = bool (*)(const CMPIBroker*, CMPIObjectPath*, std::string);

// Hands every instance of assocClass (registry order) that refers to source through role (any
// reference property when null) and, when resultClass is given, to an object of resultClass
// through resultRole, to returnFn; then returnDone. A null assocClass stands for every class
// filed for the calling provider library whose instances hold references, in class-name order.
void AssociatorsImpl(const CMPIBroker* broker, const CMPIResult* result,
                     const CMPIObjectPath* source, const char* assocClass, const char* resultClass,
                     const char* role, const char* resultRole, ReturnFunction returnFn);
// Returns a copy of the association, never the registry's own instance.
void ReturnInstance(const CMPIResult* result, CMPIInstance* association);
void ReturnObjectPath(const CMPIResult* result, CMPIInstance* association);
// Whether the named reference property (every scalar reference property when null) matches.
bool HasReferenceTo(const CMPIBroker* broker, CMPIInstance* association, std::string wanted,
                    const char* propertyName, ReferenceMatch match);
// The reference's object-path text equals wantedPathText, byte for byte.
bool IsRefInstanceMatch(const CMPIBroker* broker, CMPIObjectPath* reference,
                        std::string wantedPathText);
// The reference names an object of wantedClass or of a subclass.
bool IsRefClassMatch(const CMPIBroker* broker, CMPIObjectPath* reference, std::string wantedClass);

} // namespace NQORVA20

#endif
