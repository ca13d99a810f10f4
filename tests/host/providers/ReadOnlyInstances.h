// For test providers that only serve reads: defines <prefix>CreateInstance, ModifyInstance,
// DeleteInstance and ExecQuery, each answering CMPI_RC_ERR_NOT_SUPPORTED, for the instance MI
// stub of that prefix.
#ifndef DIAGCORE_TESTS_HOST_PROVIDERS_READONLYINSTANCES_H
#define DIAGCORE_TESTS_HOST_PROVIDERS_READONLYINSTANCES_H

#include <cmpidt.h>
#include <cmpift.h>
#include <cmpimacs.h>

#define READ_ONLY_INSTANCES(prefix)                                                                \
    CMPIStatus prefix##CreateInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,      \
                                      const CMPIObjectPath*, const CMPIInstance*) {                \
        CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);                                                       \
    }                                                                                              \
    CMPIStatus prefix##ModifyInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,      \
                                      const CMPIObjectPath*, const CMPIInstance*, const char**) {  \
        CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);                                                       \
    }                                                                                              \
    CMPIStatus prefix##DeleteInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,      \
                                      const CMPIObjectPath*) {                                     \
        CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);                                                       \
    }                                                                                              \
    CMPIStatus prefix##ExecQuery(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,           \
                                 const CMPIObjectPath*, const char*, const char*) {                \
        CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);                                                       \
    }

#endif
