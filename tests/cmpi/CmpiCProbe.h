/*
 * A translation unit compiled as C that reports the layout the interface headers give in C, and a
 * provider factory built in C by a stub macro, so that the C++ suite can check that a C provider
 * and the C++ object manager see the same structures and entry points.
 */
#ifndef DIAGCORE_TESTS_CMPI_CMPICPROBE_H
#define DIAGCORE_TESTS_CMPI_CMPICPROBE_H

#include <cmpidt.h>
#include <cmpift.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Members whose offsets both languages must agree on: (structure, member). */
#define CMPI_PROBE_MEMBERS(X)                                                                      \
    X(CMPIData, type)                                                                              \
    X(CMPIData, state)                                                                             \
    X(CMPIData, value)                                                                             \
    X(CMPIStatus, msg)                                                                             \
    X(CMPIValuePtr, length)                                                                        \
    X(CMPIBroker, bft)                                                                             \
    X(CMPIBroker, eft)                                                                             \
    X(CMPIBroker, xft)                                                                             \
    X(CMPIBroker, mft)                                                                             \
    X(CMPIBrokerFT, brokerName)                                                                    \
    X(CMPIBrokerFT, enumerateInstances)                                                            \
    X(CMPIBrokerFT, getProperty)                                                                   \
    X(CMPIBrokerEncFT, newInstance)                                                                \
    X(CMPIBrokerEncFT, logMessage)                                                                 \
    X(CMPIBrokerEncFT, getMessage2)                                                                \
    X(CMPIBrokerExtFT, signalCondition)                                                            \
    X(CMPIBrokerMemFT, freeSelectExp)                                                              \
    X(CMPIInstanceFT, setPropertyWithOrigin)                                                       \
    X(CMPIObjectPathFT, toString)                                                                  \
    X(CMPIResultFT, returnError)                                                                   \
    X(CMPIErrorFT, setMessageArguments)                                                            \
    X(CMPIInstanceMIFT, miName)                                                                    \
    X(CMPIInstanceMIFT, execQuery)                                                                 \
    X(CMPIAssociationMIFT, referenceNames)                                                         \
    X(CMPIMethodMIFT, invokeMethod)                                                                \
    X(CMPIPropertyMIFT, setPropertyWithOrigin)                                                     \
    X(CMPIIndicationMIFT, disableIndications)

/* Types whose sizes both languages must agree on. */
#define CMPI_PROBE_TYPES(X)                                                                        \
    X(CMPIValue)                                                                                   \
    X(CMPIData)                                                                                    \
    X(CMPIStatus)                                                                                  \
    X(CMPIBroker)                                                                                  \
    X(CMPIBrokerFT)                                                                                \
    X(CMPIBrokerEncFT)                                                                             \
    X(CMPIBrokerExtFT)                                                                             \
    X(CMPIBrokerMemFT)                                                                             \
    X(CMPIInstanceFT)                                                                              \
    X(CMPIObjectPathFT)                                                                            \
    X(CMPIErrorFT)                                                                                 \
    X(CMPIInstanceMIFT)                                                                            \
    X(CMPIPropertyMIFT)                                                                            \
    X(CMPIIndicationMIFT)

/* offsetof() of every CMPI_PROBE_MEMBERS entry, then sizeof() of every CMPI_PROBE_TYPES entry, in
   list order; returns how many values it wrote (never more than capacity). */
size_t cmpiCProbeLayout(size_t* values, size_t capacity);

/* Factory made in C by CMPropertyMIStub(CProbe, CProbe, ...). */
CMPIPropertyMI* CProbe_Create_PropertyMI(const CMPIBroker* broker, const CMPIContext* ctx,
                                         CMPIStatus* rc);

/* The broker the C factory stored, how often its hook ran, and the name of the last property the
   C provider's setProperty/getProperty functions saw. */
const CMPIBroker* cmpiCProbeBroker(void);
int cmpiCProbeHookRuns(void);
const char* cmpiCProbeLastProperty(void);

#ifdef __cplusplus
}
#endif

#endif
