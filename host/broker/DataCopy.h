// Deep copies of CMPI values for the objects that keep them (instances, paths, arrays, args,
// contexts, results) and for values handed back to a caller: every encapsulated object in a
// value is copied, so the copy never depends on the caller's objects. Scalars are read with
// the width of their type only, as providers pass pointers to plain variables.
#ifndef DIAGHOST_BROKER_DATACOPY_H
#define DIAGHOST_BROKER_DATACOPY_H

#include "host/broker/HostObject.h"

#include <cmpidt.h>

#include <cstring>

namespace diaghost {

class DataCopy {
public:
    using Placement = HostObject::Placement;

    // Copies the value of `type` at value into out. CMPI_chars becomes CMPI_string (and
    // CMPI_charsA CMPI_stringA); for CMPI_chars the value pointer is the text itself. A null
    // value pointer, or a null object pointer, gives a null datum of the type. Copied objects are
    // placed as `where` says. Answers CMPI_RC_ERR_INVALID_HANDLE, leaving out null, for an object
    // this host did not make (a string of other origin is read through its function table instead),
    // and CMPI_RC_ERR_INVALID_DATA_TYPE for a type code the host does not know. Throws bad_alloc.
    static CMPIrc copy(Broker& broker, const CMPIValue* value, CMPIType type, Placement where,
                       CMPIData& out);
    // The same for a datum; a datum in the null state stays null with its type.
    static CMPIrc copy(Broker& broker, const CMPIData& in, Placement where, CMPIData& out);

    // Frees the objects of a datum copied with Placement::Parent and leaves it null.
    static void destroy(CMPIData& data) noexcept;

    static CMPIData null(CMPIType type) {
        CMPIData d{};
        d.type = type;
        d.state = CMPI_nullValue;
        return d;
    }
    // One member of a value a caller passed. Providers hand in the address of a plain variable
    // of the member's type, which need not be aligned for the whole union, so the member's bytes
    // are copied rather than read through the union.
    template <class T>
    static T member(const CMPIValue* value) {
        T out;
        std::memcpy(&out, value, sizeof out);
        return out;
    }
    // The type a value of `type` is kept as: chars become strings.
    static CMPIType storedType(CMPIType type);
    // Types whose value is an encapsulated object the host owns a copy of.
    static bool holdsObject(CMPIType type);
    // Whether the datum's object lives in the broker's scope memory.
    static bool inScopeMemory(const CMPIData& data) noexcept;
    // Type codes the host can keep: the scalars, the encapsulated types and arrays of them.
    static bool knownType(CMPIType type);
};

} // namespace diaghost

#endif
