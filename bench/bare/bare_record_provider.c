/*
 * A CMPI provider written by hand in plain C, without libdiagcore: the baseline that
 * bench_core_share serves beside the core's ZORQ_NetDiagRecord.
 *
 * It serves ZORQ_BareRecord (bench/bare/bare.mof), N records kept in memory. Every property value
 * is the one a ZORQ_NetDiagRecord carries after RunDiagnostic of the NetworkPortLink test on the
 * loopback interface, as `diagctl run` printed it once through the embedded host; the values are
 * written here as constants. Only InstanceID and CreationTimeStamp differ from record to record,
 * as they do for the core's records: record i was "completed" i microseconds after the provider
 * first set its count, and its InstanceID is "ZORQ_NetDiagService:NetworkPortLink:" followed by
 * that time, the form the core gives its records.
 *
 * N is read from the environment variable ZORQ_BARE_RECORDS when the first MI is made (0 when
 * unset), and set again by the method SetRecordCount(Count) of ZORQ_BareRecordControl, Count
 * given as decimal text.
 *
 * Instances and paths are made with the broker's function tables (CMNewObjectPath, CMAddKey,
 * CMNewInstance, CMSetProperty) for every request, as a hand-written provider does; nothing is
 * released by hand: the broker frees what a call made when the call ends.
 */
#include <cmpidt.h>
#include <cmpift.h>
#include <cmpimacs.h>

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <time.h>

#define BARE_CLASS "ZORQ_BareRecord"
#define BARE_CONTROL_CLASS "ZORQ_BareRecordControl"
#define BARE_ID_PREFIX "ZORQ_NetDiagService:NetworkPortLink:"
/* "yyyymmddhhmmss.mmmmmm+000" and its terminating NUL. */
#define BARE_TIME_SIZE 26

static const CMPIBroker* broker;

/* The records: the completion time of each, in CIM datetime form, in ascending order. */
static pthread_rwlock_t records_lock = PTHREAD_RWLOCK_INITIALIZER;
static char (*record_times)[BARE_TIME_SIZE];
static unsigned long record_count;
static time_t base_seconds;
static int initialised;

/* The CIM datetime text of base_seconds + index microseconds, in UTC. */
static void format_time(unsigned long index, char out[BARE_TIME_SIZE]) {
    time_t seconds = base_seconds + (time_t)(index / 1000000UL);
    struct tm utc;
    gmtime_r(&seconds, &utc);
    /* The date and time of day take the first 14 characters; strftime leaves the rest alone. */
    if (strftime(out, BARE_TIME_SIZE, "%Y%m%d%H%M%S", &utc) != 14)
        memset(out, '0', 14);
    snprintf(out + 14, BARE_TIME_SIZE - 14, ".%06lu+000", index % 1000000UL);
}

/* Makes the table hold `count` records; the caller holds the write lock. 0 on success. */
static int set_count_locked(unsigned long count) {
    unsigned long i;
    char(*grown)[BARE_TIME_SIZE];
    if (count > record_count) {
        grown = realloc(record_times, count * sizeof *record_times);
        if (grown == NULL)
            return -1;
        record_times = grown;
        for (i = record_count; i < count; ++i)
            format_time(i, record_times[i]);
    }
    record_count = count;
    return 0;
}

static void initialise(void) {
    const char* given;
    pthread_rwlock_wrlock(&records_lock);
    if (!initialised) {
        initialised = 1;
        base_seconds = time(NULL);
        given = getenv("ZORQ_BARE_RECORDS");
        if (given != NULL)
            set_count_locked(strtoul(given, NULL, 10));
    }
    pthread_rwlock_unlock(&records_lock);
}

static const char* namespace_of(const CMPIObjectPath* path) {
    CMPIString* ns = CMGetNameSpace(path, NULL);
    const char* text = ns != NULL ? CMGetCharsPtr(ns, NULL) : NULL;
    return text != NULL && text[0] != '\0' ? text : "root/cimv2";
}

/* The InstanceID of the record completed at `when`. */
static void instance_id(const char* when, char* out, size_t size) {
    snprintf(out, size, "%s%s", BARE_ID_PREFIX, when);
}

static CMPIObjectPath* record_path(const char* ns, const char* when, CMPIStatus* rc) {
    char id[sizeof BARE_ID_PREFIX + BARE_TIME_SIZE];
    CMPIObjectPath* path = CMNewObjectPath(broker, ns, BARE_CLASS, rc);
    if (path == NULL || rc->rc != CMPI_RC_OK)
        return NULL;
    instance_id(when, id, sizeof id);
    *rc = CMAddKey(path, "InstanceID", id, CMPI_chars);
    return rc->rc == CMPI_RC_OK ? path : NULL;
}

static CMPIInstance* record_instance(const char* ns, const char* when, const char** properties,
                                     CMPIStatus* rc) {
    char id[sizeof BARE_ID_PREFIX + BARE_TIME_SIZE];
    CMPIUint16 record_type = 2;
    CMPIUint32 loops_failed = 0;
    CMPIUint32 loops_passed = 1;
    CMPIUint32 error_count = 0;
    CMPIDateTime* created;
    CMPIArray* errors;
    CMPIInstance* inst;
    CMPIObjectPath* path = record_path(ns, when, rc);
    if (path == NULL)
        return NULL;
    inst = CMNewInstance(broker, path, rc);
    if (inst == NULL || rc->rc != CMPI_RC_OK)
        return NULL;
    if (properties != NULL)
        CMSetPropertyFilter(inst, properties, NULL);

    instance_id(when, id, sizeof id);
    CMSetProperty(inst, "InstanceID", id, CMPI_chars);
    CMSetProperty(inst, "Caption", "Result for Network port link", CMPI_chars);
    CMSetProperty(inst, "Description",
                  "Result for Checks that a network interface is operationally up and senses a "
                  "carrier",
                  CMPI_chars);
    CMSetProperty(inst, "ElementName", "Result for NetworkPortLink", CMPI_chars);
    CMSetProperty(inst, "RecordFormat", "", CMPI_chars);
    CMSetProperty(inst, "RecordData",
                  "Test Passed: lo (loopback): operstate unknown; a loopback interface has no "
                  "link state",
                  CMPI_chars);
    CMSetProperty(inst, "Locale", "en", CMPI_chars);
    CMSetProperty(inst, "ServiceName", "NetworkPortLink", CMPI_chars);
    CMSetProperty(inst, "ManagedElementName", "lo", CMPI_chars);
    CMSetProperty(inst, "RecordType", &record_type, CMPI_uint16);
    created = CMNewDateTimeFromChars(broker, when, rc);
    if (created == NULL || rc->rc != CMPI_RC_OK)
        return NULL;
    CMSetProperty(inst, "CreationTimeStamp", &created, CMPI_dateTime);
    CMSetProperty(inst, "LoopsFailed", &loops_failed, CMPI_uint32);
    CMSetProperty(inst, "LoopsPassed", &loops_passed, CMPI_uint32);
    errors = CMNewArray(broker, 1, CMPI_uint32, rc);
    if (errors == NULL || rc->rc != CMPI_RC_OK)
        return NULL;
    CMSetArrayElementAt(errors, 0, &error_count, CMPI_uint32);
    CMSetProperty(inst, "ErrorCount", &errors, CMPI_uint32A);
    return inst;
}

/* The index of the record an InstanceID names, or -1. */
static long find_record(const char* id) {
    const size_t prefix = sizeof BARE_ID_PREFIX - 1;
    unsigned long low = 0, high = record_count;
    if (id == NULL || strncmp(id, BARE_ID_PREFIX, prefix) != 0)
        return -1;
    id += prefix;
    while (low < high) {
        unsigned long mid = low + (high - low) / 2;
        int order = strcmp(record_times[mid], id);
        if (order == 0)
            return (long)mid;
        if (order < 0)
            low = mid + 1;
        else
            high = mid;
    }
    return -1;
}

/* ---- Instance MI ------------------------------------------------------------------------- */

static CMPIStatus BareCleanup(CMPIInstanceMI* mi, const CMPIContext* ctx, CMPIBoolean terminating) {
    (void)mi;
    (void)ctx;
    (void)terminating;
    CMReturn(CMPI_RC_OK);
}

static CMPIStatus BareEnumInstanceNames(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                        const CMPIResult* rslt, const CMPIObjectPath* ref) {
    CMPIStatus rc = {CMPI_RC_OK, NULL};
    const char* ns = namespace_of(ref);
    unsigned long i;
    (void)mi;
    (void)ctx;
    pthread_rwlock_rdlock(&records_lock);
    for (i = 0; i < record_count && rc.rc == CMPI_RC_OK; ++i) {
        CMPIObjectPath* path = record_path(ns, record_times[i], &rc);
        if (path != NULL)
            rc = CMReturnObjectPath(rslt, path);
    }
    pthread_rwlock_unlock(&records_lock);
    if (rc.rc == CMPI_RC_OK)
        CMReturnDone(rslt);
    return rc;
}

static CMPIStatus BareEnumInstances(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                    const CMPIResult* rslt, const CMPIObjectPath* ref,
                                    const char** properties) {
    CMPIStatus rc = {CMPI_RC_OK, NULL};
    const char* ns = namespace_of(ref);
    unsigned long i;
    (void)mi;
    (void)ctx;
    pthread_rwlock_rdlock(&records_lock);
    for (i = 0; i < record_count && rc.rc == CMPI_RC_OK; ++i) {
        CMPIInstance* inst = record_instance(ns, record_times[i], properties, &rc);
        if (inst != NULL)
            rc = CMReturnInstance(rslt, inst);
    }
    pthread_rwlock_unlock(&records_lock);
    if (rc.rc == CMPI_RC_OK)
        CMReturnDone(rslt);
    return rc;
}

static CMPIStatus BareGetInstance(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                  const CMPIResult* rslt, const CMPIObjectPath* ref,
                                  const char** properties) {
    CMPIStatus rc = {CMPI_RC_OK, NULL};
    CMPIData key = CMGetKey(ref, "InstanceID", &rc);
    const char* id;
    char when[BARE_TIME_SIZE];
    long index;
    (void)mi;
    (void)ctx;
    if (rc.rc != CMPI_RC_OK || CMIsNullValue(key) || key.type != CMPI_string ||
        key.value.string == NULL)
        CMReturn(CMPI_RC_ERR_NOT_FOUND);
    id = CMGetCharsPtr(key.value.string, NULL);
    pthread_rwlock_rdlock(&records_lock);
    index = find_record(id);
    if (index >= 0)
        memcpy(when, record_times[index], sizeof when);
    pthread_rwlock_unlock(&records_lock);
    if (index < 0)
        CMReturn(CMPI_RC_ERR_NOT_FOUND);
    {
        CMPIInstance* inst = record_instance(namespace_of(ref), when, properties, &rc);
        if (inst == NULL)
            return rc;
        rc = CMReturnInstance(rslt, inst);
    }
    if (rc.rc == CMPI_RC_OK)
        CMReturnDone(rslt);
    return rc;
}

static CMPIStatus BareCreateInstance(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                     const CMPIResult* rslt, const CMPIObjectPath* ref,
                                     const CMPIInstance* inst) {
    (void)mi;
    (void)ctx;
    (void)rslt;
    (void)ref;
    (void)inst;
    CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);
}

static CMPIStatus BareModifyInstance(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                     const CMPIResult* rslt, const CMPIObjectPath* ref,
                                     const CMPIInstance* inst, const char** properties) {
    (void)mi;
    (void)ctx;
    (void)rslt;
    (void)ref;
    (void)inst;
    (void)properties;
    CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);
}

static CMPIStatus BareDeleteInstance(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                     const CMPIResult* rslt, const CMPIObjectPath* ref) {
    (void)mi;
    (void)ctx;
    (void)rslt;
    (void)ref;
    CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);
}

static CMPIStatus BareExecQuery(CMPIInstanceMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                                const CMPIObjectPath* ref, const char* query, const char* lang) {
    (void)mi;
    (void)ctx;
    (void)rslt;
    (void)ref;
    (void)query;
    (void)lang;
    CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);
}

/* ---- Method MI --------------------------------------------------------------------------- */

static CMPIStatus BareMethodCleanup(CMPIMethodMI* mi, const CMPIContext* ctx,
                                    CMPIBoolean terminating) {
    (void)mi;
    (void)ctx;
    (void)terminating;
    CMReturn(CMPI_RC_OK);
}

static CMPIStatus BareInvokeMethod(CMPIMethodMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                                   const CMPIObjectPath* ref, const char* method,
                                   const CMPIArgs* in, CMPIArgs* out) {
    CMPIStatus rc = {CMPI_RC_OK, NULL};
    CMPIData count;
    CMPIUint32 result = 0;
    const char* text;
    char* end;
    unsigned long wanted;
    int failed;
    (void)mi;
    (void)ctx;
    (void)ref;
    (void)out;
    if (method == NULL || strcasecmp(method, "SetRecordCount") != 0)
        CMReturn(CMPI_RC_ERR_METHOD_NOT_FOUND);
    count = CMGetArg(in, "Count", &rc);
    if (rc.rc != CMPI_RC_OK || CMIsNullValue(count) || count.type != CMPI_string ||
        count.value.string == NULL)
        CMReturn(CMPI_RC_ERR_INVALID_PARAMETER);
    text = CMGetCharsPtr(count.value.string, NULL);
    if (text == NULL || text[0] < '0' || text[0] > '9')
        CMReturn(CMPI_RC_ERR_INVALID_PARAMETER);
    errno = 0;
    wanted = strtoul(text, &end, 10);
    if (errno != 0 || *end != '\0')
        CMReturn(CMPI_RC_ERR_INVALID_PARAMETER);
    pthread_rwlock_wrlock(&records_lock);
    failed = set_count_locked(wanted);
    pthread_rwlock_unlock(&records_lock);
    if (failed)
        CMReturn(CMPI_RC_ERR_FAILED);
    CMReturnData(rslt, &result, CMPI_uint32);
    CMReturnDone(rslt);
    CMReturn(CMPI_RC_OK);
}

CMInstanceMIStub(Bare, ZORQ_BareRecordProvider, broker, initialise())

    CMMethodMIStub(Bare, ZORQ_BareRecordProvider, broker, initialise())
