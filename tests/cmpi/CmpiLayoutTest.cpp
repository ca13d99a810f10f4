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

TEST(CmpiLayout, BrokerTablesKeepTheStandardSlotOrder) {
    EXPECT_AT(CMPIBrokerFT, brokerCapabilities, 0);
    EXPECT_AT(CMPIBrokerFT, brokerVersion, 4);
    EXPECT_AT(CMPIBrokerFT, brokerName, 8);
    EXPECT_AT(CMPIBrokerFT, prepareAttachThread, 16);
    EXPECT_AT(CMPIBrokerFT, attachThread, 24);
    EXPECT_AT(CMPIBrokerFT, detachThread, 32);
    EXPECT_AT(CMPIBrokerFT, deliverIndication, 40);
    EXPECT_AT(CMPIBrokerFT, enumerateInstanceNames, 48);
    EXPECT_AT(CMPIBrokerFT, getInstance, 56);
    EXPECT_AT(CMPIBrokerFT, createInstance, 64);
    EXPECT_AT(CMPIBrokerFT, modifyInstance, 72);
    EXPECT_AT(CMPIBrokerFT, deleteInstance, 80);
    EXPECT_AT(CMPIBrokerFT, execQuery, 88);
    EXPECT_AT(CMPIBrokerFT, enumerateInstances, 96);
    EXPECT_AT(CMPIBrokerFT, associators, 104);
    EXPECT_AT(CMPIBrokerFT, associatorNames, 112);
    EXPECT_AT(CMPIBrokerFT, references, 120);
    EXPECT_AT(CMPIBrokerFT, referenceNames, 128);
    EXPECT_AT(CMPIBrokerFT, invokeMethod, 136);
    EXPECT_AT(CMPIBrokerFT, setProperty, 144);
    EXPECT_AT(CMPIBrokerFT, getProperty, 152);
    EXPECT_SIZE(CMPIBrokerFT, 160);

    EXPECT_AT(CMPIBrokerEncFT, ftVersion, 0);
    EXPECT_AT(CMPIBrokerEncFT, newInstance, 8);
    EXPECT_AT(CMPIBrokerEncFT, newObjectPath, 16);
    EXPECT_AT(CMPIBrokerEncFT, newArgs, 24);
    EXPECT_AT(CMPIBrokerEncFT, newString, 32);
    EXPECT_AT(CMPIBrokerEncFT, newArray, 40);
    EXPECT_AT(CMPIBrokerEncFT, newDateTime, 48);
    EXPECT_AT(CMPIBrokerEncFT, newDateTimeFromBinary, 56);
    EXPECT_AT(CMPIBrokerEncFT, newDateTimeFromChars, 64);
    EXPECT_AT(CMPIBrokerEncFT, newSelectExp, 72);
    EXPECT_AT(CMPIBrokerEncFT, classPathIsA, 80);
    EXPECT_AT(CMPIBrokerEncFT, toString, 88);
    EXPECT_AT(CMPIBrokerEncFT, isOfType, 96);
    EXPECT_AT(CMPIBrokerEncFT, getType, 104);
    EXPECT_AT(CMPIBrokerEncFT, getMessage, 112);
    EXPECT_AT(CMPIBrokerEncFT, logMessage, 120);
    EXPECT_AT(CMPIBrokerEncFT, trace, 128);
    EXPECT_AT(CMPIBrokerEncFT, newCMPIError, 136);
    EXPECT_AT(CMPIBrokerEncFT, openMessageFile, 144);
    EXPECT_AT(CMPIBrokerEncFT, closeMessageFile, 152);
    EXPECT_AT(CMPIBrokerEncFT, getMessage2, 160);
    EXPECT_SIZE(CMPIBrokerEncFT, 168);

    EXPECT_AT(CMPIBrokerExtFT, resolveFileName, 8);
    EXPECT_AT(CMPIBrokerExtFT, newThread, 16);
    EXPECT_AT(CMPIBrokerExtFT, joinThread, 24);
    EXPECT_AT(CMPIBrokerExtFT, exitThread, 32);
    EXPECT_AT(CMPIBrokerExtFT, cancelThread, 40);
    EXPECT_AT(CMPIBrokerExtFT, threadSleep, 48);
    EXPECT_AT(CMPIBrokerExtFT, threadOnce, 56);
    EXPECT_AT(CMPIBrokerExtFT, createThreadKey, 64);
    EXPECT_AT(CMPIBrokerExtFT, destroyThreadKey, 72);
    EXPECT_AT(CMPIBrokerExtFT, getThreadSpecific, 80);
    EXPECT_AT(CMPIBrokerExtFT, setThreadSpecific, 88);
    EXPECT_AT(CMPIBrokerExtFT, newMutex, 96);
    EXPECT_AT(CMPIBrokerExtFT, destroyMutex, 104);
    EXPECT_AT(CMPIBrokerExtFT, lockMutex, 112);
    EXPECT_AT(CMPIBrokerExtFT, unlockMutex, 120);
    EXPECT_AT(CMPIBrokerExtFT, newCondition, 128);
    EXPECT_AT(CMPIBrokerExtFT, destroyCondition, 136);
    EXPECT_AT(CMPIBrokerExtFT, condWait, 144);
    EXPECT_AT(CMPIBrokerExtFT, timedCondWait, 152);
    EXPECT_AT(CMPIBrokerExtFT, signalCondition, 160);
    EXPECT_SIZE(CMPIBrokerExtFT, 168);

    EXPECT_AT(CMPIBrokerMemFT, mark, 8);
    EXPECT_AT(CMPIBrokerMemFT, release, 16);
    EXPECT_AT(CMPIBrokerMemFT, cmpiMalloc, 24);
    EXPECT_AT(CMPIBrokerMemFT, cmpiCalloc, 32);
    EXPECT_AT(CMPIBrokerMemFT, cmpiRealloc, 40);
    EXPECT_AT(CMPIBrokerMemFT, cmpiStrDup, 48);
    EXPECT_AT(CMPIBrokerMemFT, cmpiFree, 56);
    EXPECT_AT(CMPIBrokerMemFT, freeInstance, 64);
    EXPECT_AT(CMPIBrokerMemFT, freeObjectPath, 72);
    EXPECT_AT(CMPIBrokerMemFT, freeArgs, 80);
    EXPECT_AT(CMPIBrokerMemFT, freeString, 88);
    EXPECT_AT(CMPIBrokerMemFT, freeArray, 96);
    EXPECT_AT(CMPIBrokerMemFT, freeDateTime, 104);
    EXPECT_AT(CMPIBrokerMemFT, freeSelectExp, 112);
    EXPECT_SIZE(CMPIBrokerMemFT, 120);
}

TEST(CmpiLayout, ObjectTablesKeepTheStandardSlotOrder) {
    // Every object table starts {ftVersion, release, clone}.
    EXPECT_AT(CMPIInstanceFT, ftVersion, 0);
    EXPECT_AT(CMPIInstanceFT, release, 8);
    EXPECT_AT(CMPIInstanceFT, clone, 16);
    EXPECT_AT(CMPIInstanceFT, getProperty, 24);
    EXPECT_AT(CMPIInstanceFT, getPropertyAt, 32);
    EXPECT_AT(CMPIInstanceFT, getPropertyCount, 40);
    EXPECT_AT(CMPIInstanceFT, setProperty, 48);
    EXPECT_AT(CMPIInstanceFT, getObjectPath, 56);
    EXPECT_AT(CMPIInstanceFT, setPropertyFilter, 64);
    EXPECT_AT(CMPIInstanceFT, setObjectPath, 72);
    EXPECT_AT(CMPIInstanceFT, setPropertyWithOrigin, 80);
    EXPECT_SIZE(CMPIInstanceFT, 88);

    EXPECT_AT(CMPIObjectPathFT, release, 8);
    EXPECT_AT(CMPIObjectPathFT, clone, 16);
    EXPECT_AT(CMPIObjectPathFT, setNameSpace, 24);
    EXPECT_AT(CMPIObjectPathFT, getNameSpace, 32);
    EXPECT_AT(CMPIObjectPathFT, setHostname, 40);
    EXPECT_AT(CMPIObjectPathFT, getHostname, 48);
    EXPECT_AT(CMPIObjectPathFT, setClassName, 56);
    EXPECT_AT(CMPIObjectPathFT, getClassName, 64);
    EXPECT_AT(CMPIObjectPathFT, addKey, 72);
    EXPECT_AT(CMPIObjectPathFT, getKey, 80);
    EXPECT_AT(CMPIObjectPathFT, getKeyAt, 88);
    EXPECT_AT(CMPIObjectPathFT, getKeyCount, 96);
    EXPECT_AT(CMPIObjectPathFT, setNameSpaceFromObjectPath, 104);
    EXPECT_AT(CMPIObjectPathFT, setHostAndNameSpaceFromObjectPath, 112);
    EXPECT_AT(CMPIObjectPathFT, getClassQualifier, 120);
    EXPECT_AT(CMPIObjectPathFT, getPropertyQualifier, 128);
    EXPECT_AT(CMPIObjectPathFT, getMethodQualifier, 136);
    EXPECT_AT(CMPIObjectPathFT, getParameterQualifier, 144);
    EXPECT_AT(CMPIObjectPathFT, toString, 152);
    EXPECT_SIZE(CMPIObjectPathFT, 160);

    EXPECT_AT(CMPIArgsFT, addArg, 24);
    EXPECT_AT(CMPIArgsFT, getArg, 32);
    EXPECT_AT(CMPIArgsFT, getArgAt, 40);
    EXPECT_AT(CMPIArgsFT, getArgCount, 48);
    EXPECT_SIZE(CMPIArgsFT, 56);

    EXPECT_AT(CMPIArrayFT, getSize, 24);
    EXPECT_AT(CMPIArrayFT, getSimpleType, 32);
    EXPECT_AT(CMPIArrayFT, getElementAt, 40);
    EXPECT_AT(CMPIArrayFT, setElementAt, 48);
    EXPECT_SIZE(CMPIArrayFT, 56);

    EXPECT_AT(CMPIStringFT, getCharPtr, 24);
    EXPECT_SIZE(CMPIStringFT, 32);

    EXPECT_AT(CMPIDateTimeFT, getBinaryFormat, 24);
    EXPECT_AT(CMPIDateTimeFT, getStringFormat, 32);
    EXPECT_AT(CMPIDateTimeFT, isInterval, 40);
    EXPECT_SIZE(CMPIDateTimeFT, 48);

    EXPECT_AT(CMPIEnumerationFT, getNext, 24);
    EXPECT_AT(CMPIEnumerationFT, hasNext, 32);
    EXPECT_AT(CMPIEnumerationFT, toArray, 40);
    EXPECT_SIZE(CMPIEnumerationFT, 48);

    EXPECT_AT(CMPIResultFT, returnData, 24);
    EXPECT_AT(CMPIResultFT, returnInstance, 32);
    EXPECT_AT(CMPIResultFT, returnObjectPath, 40);
    EXPECT_AT(CMPIResultFT, returnDone, 48);
    EXPECT_AT(CMPIResultFT, returnError, 56);
    EXPECT_SIZE(CMPIResultFT, 64);

    EXPECT_AT(CMPIContextFT, getEntry, 24);
    EXPECT_AT(CMPIContextFT, getEntryAt, 32);
    EXPECT_AT(CMPIContextFT, getEntryCount, 40);
    EXPECT_AT(CMPIContextFT, addEntry, 48);
    EXPECT_SIZE(CMPIContextFT, 56);

    EXPECT_AT(CMPIErrorFT, getErrorType, 24);
    EXPECT_AT(CMPIErrorFT, getMessage, 56);
    EXPECT_AT(CMPIErrorFT, getCIMStatusCode, 120);
    EXPECT_AT(CMPIErrorFT, getMessageArguments, 136);
    EXPECT_AT(CMPIErrorFT, setErrorType, 144);
    EXPECT_AT(CMPIErrorFT, setMessageArguments, 208);
    EXPECT_SIZE(CMPIErrorFT, 216);

    EXPECT_AT(CMPISelectExpFT, evaluate, 24);
    EXPECT_AT(CMPISelectExpFT, getString, 32);
    EXPECT_AT(CMPISelectExpFT, getDOC, 40);
    EXPECT_AT(CMPISelectExpFT, getCOD, 48);
    EXPECT_AT(CMPISelectExpFT, evaluateUsingAccessor, 56);
    EXPECT_SIZE(CMPISelectExpFT, 64);
    EXPECT_AT(CMPISelectCondFT, getCountAndType, 24);
    EXPECT_AT(CMPISelectCondFT, getSubCondAt, 32);
    EXPECT_SIZE(CMPISelectCondFT, 40);
    EXPECT_AT(CMPISubCondFT, getCount, 24);
    EXPECT_AT(CMPISubCondFT, getPredicateAt, 32);
    EXPECT_AT(CMPISubCondFT, getPredicate, 40);
    EXPECT_SIZE(CMPISubCondFT, 48);
    EXPECT_AT(CMPIPredicateFT, getData, 24);
    EXPECT_AT(CMPIPredicateFT, evaluateUsingAccessor, 32);
    EXPECT_SIZE(CMPIPredicateFT, 40);
}

TEST(CmpiLayout, ProviderTablesKeepTheStandardSlotOrder) {
    // Every provider table starts {ftVersion, miVersion, miName, cleanup}.
    EXPECT_AT(CMPIInstanceMIFT, ftVersion, 0);
    EXPECT_AT(CMPIInstanceMIFT, miVersion, 4);
    EXPECT_AT(CMPIInstanceMIFT, miName, 8);
    EXPECT_AT(CMPIInstanceMIFT, cleanup, 16);
    EXPECT_AT(CMPIInstanceMIFT, enumerateInstanceNames, 24);
    EXPECT_AT(CMPIInstanceMIFT, enumerateInstances, 32);
    EXPECT_AT(CMPIInstanceMIFT, getInstance, 40);
    EXPECT_AT(CMPIInstanceMIFT, createInstance, 48);
    EXPECT_AT(CMPIInstanceMIFT, modifyInstance, 56);
    EXPECT_AT(CMPIInstanceMIFT, deleteInstance, 64);
    EXPECT_AT(CMPIInstanceMIFT, execQuery, 72);
    EXPECT_SIZE(CMPIInstanceMIFT, 80);

    EXPECT_AT(CMPIAssociationMIFT, miVersion, 4);
    EXPECT_AT(CMPIAssociationMIFT, miName, 8);
    EXPECT_AT(CMPIAssociationMIFT, cleanup, 16);
    EXPECT_AT(CMPIAssociationMIFT, associators, 24);
    EXPECT_AT(CMPIAssociationMIFT, associatorNames, 32);
    EXPECT_AT(CMPIAssociationMIFT, references, 40);
    EXPECT_AT(CMPIAssociationMIFT, referenceNames, 48);
    EXPECT_SIZE(CMPIAssociationMIFT, 56);

    EXPECT_AT(CMPIMethodMIFT, miName, 8);
    EXPECT_AT(CMPIMethodMIFT, cleanup, 16);
    EXPECT_AT(CMPIMethodMIFT, invokeMethod, 24);
    EXPECT_SIZE(CMPIMethodMIFT, 32);

    EXPECT_AT(CMPIPropertyMIFT, cleanup, 16);
    EXPECT_AT(CMPIPropertyMIFT, setProperty, 24);
    EXPECT_AT(CMPIPropertyMIFT, getProperty, 32);
    EXPECT_AT(CMPIPropertyMIFT, setPropertyWithOrigin, 40);
    EXPECT_SIZE(CMPIPropertyMIFT, 48);

    EXPECT_AT(CMPIIndicationMIFT, cleanup, 16);
    EXPECT_AT(CMPIIndicationMIFT, authorizeFilter, 24);
    EXPECT_AT(CMPIIndicationMIFT, mustPoll, 32);
    EXPECT_AT(CMPIIndicationMIFT, activateFilter, 40);
    EXPECT_AT(CMPIIndicationMIFT, deActivateFilter, 48);
    EXPECT_AT(CMPIIndicationMIFT, enableIndications, 56);
    EXPECT_AT(CMPIIndicationMIFT, disableIndications, 64);
    EXPECT_SIZE(CMPIIndicationMIFT, 72);
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

TEST(CmpiValues, TypeCodesHaveTheStandardValues) {
    EXPECT_EQ(CMPI_null, 0);
    EXPECT_EQ(CMPI_SIMPLE, 2);
    EXPECT_EQ(CMPI_boolean, 2);
    EXPECT_EQ(CMPI_char16, 3);
    EXPECT_EQ(CMPI_REAL, 8);
    EXPECT_EQ(CMPI_real32, 8);
    EXPECT_EQ(CMPI_real64, 12);
    EXPECT_EQ(CMPI_UINT, 128);
    EXPECT_EQ(CMPI_uint8, 128);
    EXPECT_EQ(CMPI_uint16, 144);
    EXPECT_EQ(CMPI_uint32, 160);
    EXPECT_EQ(CMPI_uint64, 176);
    EXPECT_EQ(CMPI_SINT, 192);
    EXPECT_EQ(CMPI_sint8, 192);
    EXPECT_EQ(CMPI_sint16, 208);
    EXPECT_EQ(CMPI_sint32, 224);
    EXPECT_EQ(CMPI_sint64, 240);
    EXPECT_EQ(CMPI_INTEGER, 192);
    EXPECT_EQ(CMPI_ENC, 0x1000);
    EXPECT_EQ(CMPI_instance, 0x1000);
    EXPECT_EQ(CMPI_ref, 0x1100);
    EXPECT_EQ(CMPI_args, 0x1200);
    EXPECT_EQ(CMPI_class, 0x1300);
    EXPECT_EQ(CMPI_filter, 0x1400);
    EXPECT_EQ(CMPI_enumeration, 0x1500);
    EXPECT_EQ(CMPI_string, 0x1600);
    EXPECT_EQ(CMPI_chars, 0x1700);
    EXPECT_EQ(CMPI_dateTime, 0x1800);
    EXPECT_EQ(CMPI_ptr, 0x1900);
    EXPECT_EQ(CMPI_charsptr, 0x1a00);

    EXPECT_EQ(CMPI_ARRAY, 0x2000);
    EXPECT_EQ(CMPI_SIMPLEA, 0x2002);
    EXPECT_EQ(CMPI_booleanA, 0x2002);
    EXPECT_EQ(CMPI_char16A, 0x2003);
    EXPECT_EQ(CMPI_REALA, 0x2008);
    EXPECT_EQ(CMPI_real32A, 0x2008);
    EXPECT_EQ(CMPI_real64A, 0x200c);
    EXPECT_EQ(CMPI_UINTA, 0x2080);
    EXPECT_EQ(CMPI_uint8A, 0x2080);
    EXPECT_EQ(CMPI_uint16A, 0x2090);
    EXPECT_EQ(CMPI_uint32A, 0x20a0);
    EXPECT_EQ(CMPI_uint64A, 0x20b0);
    EXPECT_EQ(CMPI_SINTA, 0x20c0);
    EXPECT_EQ(CMPI_sint8A, 0x20c0);
    EXPECT_EQ(CMPI_sint16A, 0x20d0);
    EXPECT_EQ(CMPI_sint32A, 0x20e0);
    EXPECT_EQ(CMPI_sint64A, 0x20f0);
    EXPECT_EQ(CMPI_INTEGERA, 0x20c0);
    EXPECT_EQ(CMPI_ENCA, 0x3000);
    EXPECT_EQ(CMPI_instanceA, 0x3000);
    EXPECT_EQ(CMPI_refA, 0x3100);
    EXPECT_EQ(CMPI_stringA, 0x3600);
    EXPECT_EQ(CMPI_charsA, 0x3700);
    EXPECT_EQ(CMPI_dateTimeA, 0x3800);
    EXPECT_EQ(CMPI_charsptrA, 0x3a00);

    EXPECT_EQ(CMPI_keyInteger, CMPI_sint64);
    EXPECT_EQ(CMPI_keyString, CMPI_string);
    EXPECT_EQ(CMPI_keyBoolean, CMPI_boolean);
    EXPECT_EQ(CMPI_keyRef, CMPI_ref);

    EXPECT_EQ(CMPI_charString, 0x1600);
    EXPECT_EQ(CMPI_integerString, 0x16f0);
    EXPECT_EQ(CMPI_realString, 0x160c);
    EXPECT_EQ(CMPI_numericString, 0x16fc);
    EXPECT_EQ(CMPI_booleanString, 0x1602);
    EXPECT_EQ(CMPI_dateTimeString, 0x1e00);
    EXPECT_EQ(CMPI_classNameString, 0x1700);
    EXPECT_EQ(CMPI_nameString, 0x1e00);
}

TEST(CmpiValues, ReturnCodesHaveTheStandardValues) {
    EXPECT_EQ(CMPI_RC_OK, 0);
    EXPECT_EQ(CMPI_RC_ERR_FAILED, 1);
    EXPECT_EQ(CMPI_RC_ERR_ACCESS_DENIED, 2);
    EXPECT_EQ(CMPI_RC_ERR_INVALID_NAMESPACE, 3);
    EXPECT_EQ(CMPI_RC_ERR_INVALID_PARAMETER, 4);
    EXPECT_EQ(CMPI_RC_ERR_INVALID_CLASS, 5);
    EXPECT_EQ(CMPI_RC_ERR_NOT_FOUND, 6);
    EXPECT_EQ(CMPI_RC_ERR_NOT_SUPPORTED, 7);
    EXPECT_EQ(CMPI_RC_ERR_CLASS_HAS_CHILDREN, 8);
    EXPECT_EQ(CMPI_RC_ERR_CLASS_HAS_INSTANCES, 9);
    EXPECT_EQ(CMPI_RC_ERR_INVALID_SUPERCLASS, 10);
    EXPECT_EQ(CMPI_RC_ERR_ALREADY_EXISTS, 11);
    EXPECT_EQ(CMPI_RC_ERR_NO_SUCH_PROPERTY, 12);
    EXPECT_EQ(CMPI_RC_ERR_TYPE_MISMATCH, 13);
    EXPECT_EQ(CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED, 14);
    EXPECT_EQ(CMPI_RC_ERR_INVALID_QUERY, 15);
    EXPECT_EQ(CMPI_RC_ERR_METHOD_NOT_AVAILABLE, 16);
    EXPECT_EQ(CMPI_RC_ERR_METHOD_NOT_FOUND, 17);
    EXPECT_EQ(CMPI_RC_DO_NOT_UNLOAD, 50);
    EXPECT_EQ(CMPI_RC_NEVER_UNLOAD, 51);
    EXPECT_EQ(CMPI_RC_ERR_INVALID_HANDLE, 60);
    EXPECT_EQ(CMPI_RC_ERR_INVALID_DATA_TYPE, 61);
    EXPECT_EQ(CMPI_RC_ERROR_SYSTEM, 100);
    EXPECT_EQ(CMPI_RC_ERROR, 200);
}

TEST(CmpiValues, StatesFlagsCapabilitiesAndEnumerationsHaveTheStandardValues) {
    EXPECT_EQ(CMPI_goodValue, 0);
    EXPECT_EQ(CMPI_nullValue, 0x100);
    EXPECT_EQ(CMPI_keyValue, 0x200);
    EXPECT_EQ(CMPI_notFound, 0x400);
    EXPECT_EQ(CMPI_badValue, 0x8000);

    EXPECT_EQ(CMPI_FLAG_LocalOnly, 1);
    EXPECT_EQ(CMPI_FLAG_DeepInheritance, 2);
    EXPECT_EQ(CMPI_FLAG_IncludeQualifiers, 4);
    EXPECT_EQ(CMPI_FLAG_IncludeClassOrigin, 8);

    EXPECT_EQ(CMPI_MB_BasicRead, 0x1);
    EXPECT_EQ(CMPI_MB_BasicWrite, 0x3);
    EXPECT_EQ(CMPI_MB_InstanceManipulation, 0x7);
    EXPECT_EQ(CMPI_MB_AssociationTraversal, 0x9);
    EXPECT_EQ(CMPI_MB_QueryExecution, 0x11);
    EXPECT_EQ(CMPI_MB_QueryNormalization, 0x31);
    EXPECT_EQ(CMPI_MB_BasicQualifierSupport, 0x47);
    EXPECT_EQ(CMPI_MB_Indications, 0x81);
    EXPECT_EQ(CMPI_MB_OSEncapsulationSupport, 0x100);
    EXPECT_EQ(CMPI_MB_Supports_MemEnhancements, 0x4000);
    EXPECT_EQ(CMPI_MB_Supports_Extended_Error, 0x8000);

    EXPECT_EQ(CMPIVersion100, 100);
    EXPECT_EQ(CMPIVersion200, 200);
    EXPECT_EQ(CMPICurrentVersion, 200);

    EXPECT_EQ(CMPI_PredOp_Equals, 1);
    EXPECT_EQ(CMPI_PredOp_NotLike, 10);
    EXPECT_EQ(CMPI_PredOp_Or, 14);
    EXPECT_EQ(CMPI_SEV_ERROR, 1);
    EXPECT_EQ(CMPI_DEV_DEBUG, 4);
    EXPECT_EQ(CMPI_LEV_VERBOSE, 3);
    EXPECT_EQ(UnsupportedOperationError, 10);
    EXPECT_EQ(ErrorSevLow, 2);
    EXPECT_EQ(ErrorSevFatal, 5);
    EXPECT_EQ(Leak_Detected, 113);
    EXPECT_EQ(Unexpected_Information, 130);
    EXPECT_EQ(CIMObjectHandle, 2);
}

} // namespace
