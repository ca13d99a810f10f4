// CIM values from their text (MOF literals, object-path key literals, object paths) as CMPIData
// made through the broker: literals become values of the declared CIM type with range checks,
// and path text becomes a CMPIObjectPath whose keys take the types their class declares.
#ifndef DIAGHOST_BROKER_CIMVALUECODEC_H
#define DIAGHOST_BROKER_CIMVALUECODEC_H

#include "host/mof/CimClass.h"
#include "host/text/ObjectPathText.h"

#include <cmpidt.h>

#include <stdexcept>
#include <string>

namespace diaghost {

class Broker;

class CimValueCodec {
public:
    // A literal that cannot become a value of the asked type; what() says why.
    class Error : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    // The kind of literal the bare text of a value of `type` reads as (CIM-XML writes numbers
    // and booleans unquoted): Integer, Real, Boolean, else String. Arrays by their element type.
    static LiteralKind literalKindFor(CMPIType type);

    // A scalar literal as a value of `type` (no array flag). Strings, datetimes and paths are made
    // through the broker and belong to the calling thread's current scope. A Reference literal,
    // or a String literal for a REF type, is parsed as object path text; a path without a
    // namespace gets `ns`. Throws Error.
    static CMPIData fromLiteral(Broker& broker, MofValue::Kind kind, const std::string& text,
                                CimTypeCode type, const std::string& ns);
    // A MOF value, scalar or array, as a value of `type`; arrays become a CMPIArray. A Null
    // value gives the type with CMPI_nullValue. Throws Error.
    static CMPIData fromMof(Broker& broker, const MofValue& value, CimTypeCode type,
                            const std::string& ns);
    // A literal typed by its own form, for keys whose declared type is unknown: strings
    // CMPI_string, integers CMPI_sint64 (CMPI_uint64 above its range), reals CMPI_real64,
    // booleans, chars CMPI_char16, references CMPI_ref. Throws Error.
    static CMPIData fromUntypedLiteral(Broker& broker, MofValue::Kind kind, const std::string& text,
                                       const std::string& ns);

    // A parsed object path made through the broker (owned by the calling thread's current scope).
    // A path without a namespace gets defaultNs. When the broker's repository knows the class,
    // each key takes the type the class declares for it (REF keys become paths, datetimes
    // CMPIDateTime); other keys are typed by their literal. Throws ObjectPathError.
    static CMPIObjectPath* pathFromText(Broker& broker, const ObjectPathText& path,
                                        const std::string& defaultNs = "");
    // ObjectPathText::parse(), then pathFromText().
    static CMPIObjectPath* pathFromText(Broker& broker, const std::string& text,
                                        const std::string& defaultNs);
};

} // namespace diaghost

#endif
