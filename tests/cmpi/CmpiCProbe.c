/* Compiled as ISO C99 with -pedantic: every interface header must be usable from plain C. */
#include "CmpiCProbe.h"

#include <cmpidt.h>
#include <cmpift.h>
#include <cmpimacs.h>
#include <cmpios.h>

static const CMPIBroker* probeBroker;
static int probeHookRuns;
static const char* probeLastProperty;

static void probeHook(void) {
    ++probeHookRuns;
}

static CMPIStatus CProbePropertyCleanup(CMPIPropertyMI* mi, const CMPIContext* ctx,
                                        CMPIBoolean terminating) {
    (void)mi;
    (void)ctx;
    CMReturn(terminating ? CMPI_RC_OK : CMPI_RC_DO_NOT_UNLOAD);
}

static CMPIStatus CProbeSetProperty(CMPIPropertyMI* mi, const CMPIContext* ctx,
                                    const CMPIResult* rslt, const CMPIObjectPath* op,
                                    const char* name, const CMPIData data) {
    (void)mi;
    (void)ctx;
    (void)rslt;
    (void)op;
    probeLastProperty = name;
    CMReturn(CMIsNullValue(data) ? CMPI_RC_ERR_INVALID_PARAMETER : CMPI_RC_OK);
}

static CMPIStatus CProbeGetProperty(CMPIPropertyMI* mi, const CMPIContext* ctx,
                                    const CMPIResult* rslt, const CMPIObjectPath* op,
                                    const char* name) {
    (void)mi;
    (void)ctx;
    (void)rslt;
    (void)op;
    probeLastProperty = name;
    CMReturn(CMPI_RC_ERR_NOT_FOUND);
}

CMPropertyMIStub(CProbe, CProbe, probeBroker, probeHook())

    size_t cmpiCProbeLayout(size_t* values, size_t capacity) {
#define PROBE_OFFSET(type, member) offsetof(type, member),
#define PROBE_SIZE(type) sizeof(type),
    const size_t all[] = {CMPI_PROBE_MEMBERS(PROBE_OFFSET) CMPI_PROBE_TYPES(PROBE_SIZE)};
#undef PROBE_OFFSET
#undef PROBE_SIZE
    size_t count = sizeof all / sizeof all[0];
    size_t i;
    if (count > capacity) {
        count = capacity;
    }
    for (i = 0; i < count; ++i) {
        values[i] = all[i];
    }
    return count;
}

const CMPIBroker* cmpiCProbeBroker(void) {
    return probeBroker;
}

int cmpiCProbeHookRuns(void) {
    return probeHookRuns;
}

const char* cmpiCProbeLastProperty(void) {
    return probeLastProperty;
}
