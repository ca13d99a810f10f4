// Pins the binary layout and constant values that the provider interface fixes on x86_64 LP64.
// Every expected number is written out from the standard's member and slot order, never derived
// from the headers under test, so a moved, missing or extra member fails here.
#include <cmpidt.h>
#include <cmpift.h>
#include <cmpimacs.h>
#include <cmpios.h>

#include "CmpiCProbe.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <vector>

namespace {

#define EXPECT_AT(type, member, bytes)                                                             \
    EXPECT_EQ(offsetof(type, member), std::size_t{bytes}) << #type "." #member

#define EXPECT_SIZE(type, bytes) EXPECT_EQ(sizeof(type), std::size_t{bytes}) << "sizeof " #type

TEST(CmpiLayout, DataCarriersMatchTheStandardLayout) {
    EXPECT_SIZE(CMPIBoolean, 1);
    EXPECT_SIZE(CMPIChar16, 2);
    EXPECT_SIZE(CMPIUint32, 4);
    EXPECT_SIZE(CMPIUint64, 8);
    EXPECT_SIZE(CMPISint64, 8);
    EXPECT_SIZE(CMPIReal32, 4);
    EXPECT_SIZE(CMPIReal64, 8);
    EXPECT_SIZE(CMPIType, 2);
    EXPECT_SIZE(CMPIValueState, 2);
    EXPECT_SIZE(CMPICount, 4);
    EXPECT_SIZE(CMPIrc, 4);
    EXPECT_SIZE(CMPIFlags, 4);

    // The union holds the 16-byte CMPIValuePtr {ptr, length}, so it is 16 bytes, not 8.
    EXPECT_AT(CMPIValuePtr, ptr, 0);
    EXPECT_AT(CMPIValuePtr, length, 8);
    EXPECT_SIZE(CMPIValuePtr, 16);
    EXPECT_SIZE(CMPIValue, 16);

    EXPECT_AT(CMPIData, type, 0);
    EXPECT_AT(CMPIData, state, 2);
    EXPECT_AT(CMPIData, value, 8);
    EXPECT_SIZE(CMPIData, 24);

    EXPECT_AT(CMPIStatus, rc, 0);
    EXPECT_AT(CMPIStatus, msg, 8);
    EXPECT_SIZE(CMPIStatus, 16);
}

TEST(CmpiLayout, BrokerAndEveryObjectAreHandleFollowedByTables) {
    EXPECT_AT(CMPIBroker, hdl, 0);
    EXPECT_AT(CMPIBroker, bft, 8);
    EXPECT_AT(CMPIBroker, eft, 16);
    EXPECT_AT(CMPIBroker, xft, 24);
    EXPECT_AT(CMPIBroker, mft, 32);
    EXPECT_SIZE(CMPIBroker, 40);

#define EXPECT_HANDLE_AND_TABLE(type)                                                              \
    EXPECT_AT(type, hdl, 0);                                                                       \
    EXPECT_AT(type, ft, 8);                                                                        \
    EXPECT_SIZE(type, 16)
    EXPECT_HANDLE_AND_TABLE(CMPIContext);
    EXPECT_HANDLE_AND_TABLE(CMPIResult);
    EXPECT_HANDLE_AND_TABLE(CMPIError);
    EXPECT_HANDLE_AND_TABLE(CMPIInstance);
    EXPECT_HANDLE_AND_TABLE(CMPIObjectPath);
    EXPECT_HANDLE_AND_TABLE(CMPIArgs);
    EXPECT_HANDLE_AND_TABLE(CMPIString);
    EXPECT_HANDLE_AND_TABLE(CMPIArray);
    EXPECT_HANDLE_AND_TABLE(CMPIDateTime);
    EXPECT_HANDLE_AND_TABLE(CMPIEnumeration);
    EXPECT_HANDLE_AND_TABLE(CMPISelectExp);
    EXPECT_HANDLE_AND_TABLE(CMPISelectCond);
    EXPECT_HANDLE_AND_TABLE(CMPISubCond);
    EXPECT_HANDLE_AND_TABLE(CMPIPredicate);
    EXPECT_HANDLE_AND_TABLE(CMPIInstanceMI);
    EXPECT_HANDLE_AND_TABLE(CMPIAssociationMI);
    EXPECT_HANDLE_AND_TABLE(CMPIMethodMI);
    EXPECT_HANDLE_AND_TABLE(CMPIPropertyMI);
    EXPECT_HANDLE_AND_TABLE(CMPIIndicationMI);
#undef EXPECT_HANDLE_AND_TABLE
}

// A function table's pointer slots, written in the standard's order: each must sit 8 bytes
// after the one before it, the first at `first`, and the table must end after the last.
struct Slot {
    const char* name;
    std::size_t offset;
};
#define SLOT(member)                                                                               \
    Slot {                                                                                         \
#member, offsetof(T, member)                                                               \
    }

void expectSlots(const char* type, std::size_t size, std::size_t first,
                 std::initializer_list<Slot> slots) {
    std::size_t at = first;
    for (const Slot& slot : slots) {
        EXPECT_EQ(slot.offset, at) << type << "." << slot.name;
        at += 8;
    }
    EXPECT_EQ(size, at) << "sizeof " << type;
}
#define EXPECT_SLOTS(type, first, ...)                                                             \
    do {                                                                                           \
        using T = type;                                                                            \
        expectSlots(#type, sizeof(T), first, {__VA_ARGS__});                                       \
    } while (0)

TEST(CmpiLayout, BrokerTablesKeepTheStandardSlotOrder) {
    EXPECT_AT(CMPIBrokerFT, brokerCapabilities, 0);
    EXPECT_AT(CMPIBrokerFT, brokerVersion, 4);
    EXPECT_AT(CMPIBrokerFT, brokerName, 8);
    EXPECT_SLOTS(CMPIBrokerFT, 16, SLOT(prepareAttachThread), SLOT(attachThread),
                 SLOT(detachThread), SLOT(deliverIndication), SLOT(enumerateInstanceNames),
                 SLOT(getInstance), SLOT(createInstance), SLOT(modifyInstance),
                 SLOT(deleteInstance), SLOT(execQuery), SLOT(enumerateInstances), SLOT(associators),
                 SLOT(associatorNames), SLOT(references), SLOT(referenceNames), SLOT(invokeMethod),
                 SLOT(setProperty), SLOT(getProperty));
    EXPECT_AT(CMPIBrokerEncFT, ftVersion, 0);
    EXPECT_SLOTS(CMPIBrokerEncFT, 8, SLOT(newInstance), SLOT(newObjectPath), SLOT(newArgs),
                 SLOT(newString), SLOT(newArray), SLOT(newDateTime), SLOT(newDateTimeFromBinary),
                 SLOT(newDateTimeFromChars), SLOT(newSelectExp), SLOT(classPathIsA), SLOT(toString),
                 SLOT(isOfType), SLOT(getType), SLOT(getMessage), SLOT(logMessage), SLOT(trace),
                 SLOT(newCMPIError), SLOT(openMessageFile), SLOT(closeMessageFile),
                 SLOT(getMessage2));
    EXPECT_SLOTS(CMPIBrokerExtFT, 8, SLOT(resolveFileName), SLOT(newThread), SLOT(joinThread),
                 SLOT(exitThread), SLOT(cancelThread), SLOT(threadSleep), SLOT(threadOnce),
                 SLOT(createThreadKey), SLOT(destroyThreadKey), SLOT(getThreadSpecific),
                 SLOT(setThreadSpecific), SLOT(newMutex), SLOT(destroyMutex), SLOT(lockMutex),
                 SLOT(unlockMutex), SLOT(newCondition), SLOT(destroyCondition), SLOT(condWait),
                 SLOT(timedCondWait), SLOT(signalCondition));
    EXPECT_SLOTS(CMPIBrokerMemFT, 8, SLOT(mark), SLOT(release), SLOT(cmpiMalloc), SLOT(cmpiCalloc),
                 SLOT(cmpiRealloc), SLOT(cmpiStrDup), SLOT(cmpiFree), SLOT(freeInstance),
                 SLOT(freeObjectPath), SLOT(freeArgs), SLOT(freeString), SLOT(freeArray),
                 SLOT(freeDateTime), SLOT(freeSelectExp));
}

TEST(CmpiLayout, ObjectTablesKeepTheStandardSlotOrder) {
    // Every object table starts {ftVersion, release, clone}.
    EXPECT_SLOTS(CMPIInstanceFT, 0, SLOT(ftVersion), SLOT(release), SLOT(clone), SLOT(getProperty),
                 SLOT(getPropertyAt), SLOT(getPropertyCount), SLOT(setProperty),
                 SLOT(getObjectPath), SLOT(setPropertyFilter), SLOT(setObjectPath),
                 SLOT(setPropertyWithOrigin));
    EXPECT_SLOTS(CMPIObjectPathFT, 8, SLOT(release), SLOT(clone), SLOT(setNameSpace),
                 SLOT(getNameSpace), SLOT(setHostname), SLOT(getHostname), SLOT(setClassName),
                 SLOT(getClassName), SLOT(addKey), SLOT(getKey), SLOT(getKeyAt), SLOT(getKeyCount),
                 SLOT(setNameSpaceFromObjectPath), SLOT(setHostAndNameSpaceFromObjectPath),
                 SLOT(getClassQualifier), SLOT(getPropertyQualifier), SLOT(getMethodQualifier),
                 SLOT(getParameterQualifier), SLOT(toString));
    EXPECT_SLOTS(CMPIArgsFT, 24, SLOT(addArg), SLOT(getArg), SLOT(getArgAt), SLOT(getArgCount));
    EXPECT_SLOTS(CMPIArrayFT, 24, SLOT(getSize), SLOT(getSimpleType), SLOT(getElementAt),
                 SLOT(setElementAt));
    EXPECT_SLOTS(CMPIStringFT, 24, SLOT(getCharPtr));
    EXPECT_SLOTS(CMPIDateTimeFT, 24, SLOT(getBinaryFormat), SLOT(getStringFormat),
                 SLOT(isInterval));
    EXPECT_SLOTS(CMPIEnumerationFT, 24, SLOT(getNext), SLOT(hasNext), SLOT(toArray));
    EXPECT_SLOTS(CMPIResultFT, 24, SLOT(returnData), SLOT(returnInstance), SLOT(returnObjectPath),
                 SLOT(returnDone), SLOT(returnError));
    EXPECT_SLOTS(CMPIContextFT, 24, SLOT(getEntry), SLOT(getEntryAt), SLOT(getEntryCount),
                 SLOT(addEntry));

    EXPECT_AT(CMPIErrorFT, getErrorType, 24);
    EXPECT_AT(CMPIErrorFT, getMessage, 56);
    EXPECT_AT(CMPIErrorFT, getCIMStatusCode, 120);
    EXPECT_AT(CMPIErrorFT, getMessageArguments, 136);
    EXPECT_AT(CMPIErrorFT, setErrorType, 144);
    EXPECT_AT(CMPIErrorFT, setMessageArguments, 208);
    EXPECT_SIZE(CMPIErrorFT, 216);

    EXPECT_SLOTS(CMPISelectExpFT, 24, SLOT(evaluate), SLOT(getString), SLOT(getDOC), SLOT(getCOD),
                 SLOT(evaluateUsingAccessor));
    EXPECT_SLOTS(CMPISelectCondFT, 24, SLOT(getCountAndType), SLOT(getSubCondAt));
    EXPECT_SLOTS(CMPISubCondFT, 24, SLOT(getCount), SLOT(getPredicateAt), SLOT(getPredicate));
    EXPECT_SLOTS(CMPIPredicateFT, 24, SLOT(getData), SLOT(evaluateUsingAccessor));
}

TEST(CmpiLayout, ProviderTablesKeepTheStandardSlotOrder) {
    // Every provider table starts {ftVersion, miVersion, miName, cleanup}.
    EXPECT_AT(CMPIInstanceMIFT, ftVersion, 0);
    EXPECT_AT(CMPIInstanceMIFT, miVersion, 4);
    EXPECT_SLOTS(CMPIInstanceMIFT, 8, SLOT(miName), SLOT(cleanup), SLOT(enumerateInstanceNames),
                 SLOT(enumerateInstances), SLOT(getInstance), SLOT(createInstance),
                 SLOT(modifyInstance), SLOT(deleteInstance), SLOT(execQuery));
    EXPECT_AT(CMPIAssociationMIFT, miVersion, 4);
    EXPECT_SLOTS(CMPIAssociationMIFT, 8, SLOT(miName), SLOT(cleanup), SLOT(associators),
                 SLOT(associatorNames), SLOT(references), SLOT(referenceNames));
    EXPECT_SLOTS(CMPIMethodMIFT, 8, SLOT(miName), SLOT(cleanup), SLOT(invokeMethod));
    EXPECT_SLOTS(CMPIPropertyMIFT, 16, SLOT(cleanup), SLOT(setProperty), SLOT(getProperty),
                 SLOT(setPropertyWithOrigin));
    EXPECT_SLOTS(CMPIIndicationMIFT, 16, SLOT(cleanup), SLOT(authorizeFilter), SLOT(mustPoll),
                 SLOT(activateFilter), SLOT(deActivateFilter), SLOT(enableIndications),
                 SLOT(disableIndications));
}

TEST(CmpiLayout, CAndCxxCompilersAgreeOnOffsetsAndSizes) {
#define CXX_OFFSET(type, member) offsetof(type, member),
#define CXX_SIZE(type) sizeof(type),
    const std::vector<std::size_t> fromCxx = {CMPI_PROBE_MEMBERS(CXX_OFFSET)
                                                  CMPI_PROBE_TYPES(CXX_SIZE)};
#undef CXX_OFFSET
#undef CXX_SIZE
    std::vector<std::size_t> fromC(fromCxx.size() + 1, 0);
    fromC.resize(cmpiCProbeLayout(fromC.data(), fromC.size()));
    EXPECT_EQ(fromC, fromCxx);
}

// Constants and their standard values, written out here; a differing one fails by name.
struct Code {
    const char* name;
    long long value;
    long long expected;
};
#define CODE(name, expected)                                                                       \
    Code {                                                                                         \
#name, static_cast < long long>(name), expected                                            \
    }

template <class... Codes>
void expectCodes(const Codes&... codes) {
    for (const Code& code : {codes...})
        EXPECT_EQ(code.value, code.expected) << code.name;
}

TEST(CmpiValues, TypeCodesHaveTheStandardValues) {
    expectCodes(CODE(CMPI_null, 0), CODE(CMPI_SIMPLE, 2), CODE(CMPI_boolean, 2),
                CODE(CMPI_char16, 3), CODE(CMPI_REAL, 8), CODE(CMPI_real32, 8),
                CODE(CMPI_real64, 12), CODE(CMPI_UINT, 128), CODE(CMPI_uint8, 128),
                CODE(CMPI_uint16, 144), CODE(CMPI_uint32, 160), CODE(CMPI_uint64, 176),
                CODE(CMPI_SINT, 192), CODE(CMPI_sint8, 192), CODE(CMPI_sint16, 208),
                CODE(CMPI_sint32, 224), CODE(CMPI_sint64, 240), CODE(CMPI_INTEGER, 192),
                CODE(CMPI_ENC, 0x1000), CODE(CMPI_instance, 0x1000), CODE(CMPI_ref, 0x1100),
                CODE(CMPI_args, 0x1200), CODE(CMPI_class, 0x1300), CODE(CMPI_filter, 0x1400),
                CODE(CMPI_enumeration, 0x1500), CODE(CMPI_string, 0x1600), CODE(CMPI_chars, 0x1700),
                CODE(CMPI_dateTime, 0x1800), CODE(CMPI_ptr, 0x1900), CODE(CMPI_charsptr, 0x1a00),
                CODE(CMPI_ARRAY, 0x2000), CODE(CMPI_SIMPLEA, 0x2002), CODE(CMPI_booleanA, 0x2002),
                CODE(CMPI_char16A, 0x2003), CODE(CMPI_REALA, 0x2008), CODE(CMPI_real32A, 0x2008),
                CODE(CMPI_real64A, 0x200c), CODE(CMPI_UINTA, 0x2080), CODE(CMPI_uint8A, 0x2080),
                CODE(CMPI_uint16A, 0x2090), CODE(CMPI_uint32A, 0x20a0), CODE(CMPI_uint64A, 0x20b0),
                CODE(CMPI_SINTA, 0x20c0), CODE(CMPI_sint8A, 0x20c0), CODE(CMPI_sint16A, 0x20d0),
                CODE(CMPI_sint32A, 0x20e0), CODE(CMPI_sint64A, 0x20f0), CODE(CMPI_INTEGERA, 0x20c0),
                CODE(CMPI_ENCA, 0x3000), CODE(CMPI_instanceA, 0x3000), CODE(CMPI_refA, 0x3100),
                CODE(CMPI_stringA, 0x3600), CODE(CMPI_charsA, 0x3700), CODE(CMPI_dateTimeA, 0x3800),
                CODE(CMPI_charsptrA, 0x3a00), CODE(CMPI_keyInteger, CMPI_sint64),
                CODE(CMPI_keyString, CMPI_string), CODE(CMPI_keyBoolean, CMPI_boolean),
                CODE(CMPI_keyRef, CMPI_ref), CODE(CMPI_charString, 0x1600),
                CODE(CMPI_integerString, 0x16f0), CODE(CMPI_realString, 0x160c),
                CODE(CMPI_numericString, 0x16fc), CODE(CMPI_booleanString, 0x1602),
                CODE(CMPI_dateTimeString, 0x1e00), CODE(CMPI_classNameString, 0x1700),
                CODE(CMPI_nameString, 0x1e00));
}

TEST(CmpiValues, ReturnCodesHaveTheStandardValues) {
    expectCodes(CODE(CMPI_RC_OK, 0), CODE(CMPI_RC_ERR_FAILED, 1),
                CODE(CMPI_RC_ERR_ACCESS_DENIED, 2), CODE(CMPI_RC_ERR_INVALID_NAMESPACE, 3),
                CODE(CMPI_RC_ERR_INVALID_PARAMETER, 4), CODE(CMPI_RC_ERR_INVALID_CLASS, 5),
                CODE(CMPI_RC_ERR_NOT_FOUND, 6), CODE(CMPI_RC_ERR_NOT_SUPPORTED, 7),
                CODE(CMPI_RC_ERR_CLASS_HAS_CHILDREN, 8), CODE(CMPI_RC_ERR_CLASS_HAS_INSTANCES, 9),
                CODE(CMPI_RC_ERR_INVALID_SUPERCLASS, 10), CODE(CMPI_RC_ERR_ALREADY_EXISTS, 11),
                CODE(CMPI_RC_ERR_NO_SUCH_PROPERTY, 12), CODE(CMPI_RC_ERR_TYPE_MISMATCH, 13),
                CODE(CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED, 14),
                CODE(CMPI_RC_ERR_INVALID_QUERY, 15), CODE(CMPI_RC_ERR_METHOD_NOT_AVAILABLE, 16),
                CODE(CMPI_RC_ERR_METHOD_NOT_FOUND, 17), CODE(CMPI_RC_DO_NOT_UNLOAD, 50),
                CODE(CMPI_RC_NEVER_UNLOAD, 51), CODE(CMPI_RC_ERR_INVALID_HANDLE, 60),
                CODE(CMPI_RC_ERR_INVALID_DATA_TYPE, 61), CODE(CMPI_RC_ERROR_SYSTEM, 100),
                CODE(CMPI_RC_ERROR, 200));
}

TEST(CmpiValues, StatesFlagsCapabilitiesAndEnumerationsHaveTheStandardValues) {
    expectCodes(
        CODE(CMPI_goodValue, 0), CODE(CMPI_nullValue, 0x100), CODE(CMPI_keyValue, 0x200),
        CODE(CMPI_notFound, 0x400), CODE(CMPI_badValue, 0x8000), CODE(CMPI_FLAG_LocalOnly, 1),
        CODE(CMPI_FLAG_DeepInheritance, 2), CODE(CMPI_FLAG_IncludeQualifiers, 4),
        CODE(CMPI_FLAG_IncludeClassOrigin, 8), CODE(CMPI_MB_BasicRead, 0x1),
        CODE(CMPI_MB_BasicWrite, 0x3), CODE(CMPI_MB_InstanceManipulation, 0x7),
        CODE(CMPI_MB_AssociationTraversal, 0x9), CODE(CMPI_MB_QueryExecution, 0x11),
        CODE(CMPI_MB_QueryNormalization, 0x31), CODE(CMPI_MB_BasicQualifierSupport, 0x47),
        CODE(CMPI_MB_Indications, 0x81), CODE(CMPI_MB_OSEncapsulationSupport, 0x100),
        CODE(CMPI_MB_Supports_MemEnhancements, 0x4000),
        CODE(CMPI_MB_Supports_Extended_Error, 0x8000), CODE(CMPIVersion100, 100),
        CODE(CMPIVersion200, 200), CODE(CMPICurrentVersion, 200), CODE(CMPI_PredOp_Equals, 1),
        CODE(CMPI_PredOp_NotLike, 10), CODE(CMPI_PredOp_Or, 14), CODE(CMPI_SEV_ERROR, 1),
        CODE(CMPI_DEV_DEBUG, 4), CODE(CMPI_LEV_VERBOSE, 3), CODE(UnsupportedOperationError, 10),
        CODE(ErrorSevLow, 2), CODE(ErrorSevFatal, 5), CODE(Leak_Detected, 113),
        CODE(Unexpected_Information, 130), CODE(CIMObjectHandle, 2));
}

} // namespace
