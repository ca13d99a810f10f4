// Where the suite finds the project's MOF and registration files and the shared DMTF schema, and
// the one-line type texts its messages compare.
#ifndef DIAGCORE_TESTS_MOFAGREEMENT_MOFAGREEMENTFILES_H
#define DIAGCORE_TESTS_MOFAGREEMENT_MOFAGREEMENTFILES_H

#include "host/mof/CimClass.h"
#include "host/mof/CimTypeCodes.h"

#include <string>

namespace mofagreement {

inline const std::string kOwnMof = DIAGCORE_SOURCE_DIR "/mof/diagcore.mof";
inline const std::string kSfcbRegistration = DIAGCORE_SOURCE_DIR "/mof/registration/diagcore.reg";
inline const std::string kPegasusClasses =
    DIAGCORE_SOURCE_DIR "/mof/registration/pegasus/pg-interop-classes.mof";
inline const std::string kPegasusRegistration =
    DIAGCORE_SOURCE_DIR "/mof/registration/pegasus/diagcore-registration.mof";
inline const std::string kDmtfSchema = DIAGCORE_SHARED_DIR "/schema/CIM241/CIM_Schema.mof";

inline const char* const kCimv2 = "root/cimv2";
inline const char* const kInterop = "root/PG_InterOp";

// "uint16", "string[]", "CIM_Log REF": the type as MOF writes it, reference class included.
inline std::string typeText(diaghost::CimTypeCode type, const std::string& refClass) {
    using namespace diaghost;
    CimTypeCode t = cimtype::elementType(type);
    std::string text = t == cimtype::ref ? refClass + " REF" : "code " + std::to_string(t);
    static const std::pair<CimTypeCode, const char*> names[] = {
        {cimtype::boolean, "boolean"}, {cimtype::char16, "char16"},    {cimtype::real32, "real32"},
        {cimtype::real64, "real64"},   {cimtype::uint8, "uint8"},      {cimtype::uint16, "uint16"},
        {cimtype::uint32, "uint32"},   {cimtype::uint64, "uint64"},    {cimtype::sint8, "sint8"},
        {cimtype::sint16, "sint16"},   {cimtype::sint32, "sint32"},    {cimtype::sint64, "sint64"},
        {cimtype::string, "string"},   {cimtype::datetime, "datetime"}};
    for (const auto& [code, name] : names) {
        if (code == t) {
            text = name;
        }
    }
    return cimtype::isArray(type) ? text + "[]" : text;
}

inline std::string typeText(const diaghost::CimProperty& p) {
    return typeText(p.type, p.refClass);
}

} // namespace mofagreement

#endif
