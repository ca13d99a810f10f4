#include "host/broker/OsServices.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <pthread.h>

namespace diaghost {

namespace {

static_assert(sizeof(pthread_once_t) == sizeof(int), "threadOnce takes a pthread_once_t as int");
static_assert(sizeof(pthread_t) <= sizeof(void*), "a thread handle is a pthread_t");

pthread_t threadOf(CMPI_THREAD_TYPE handle) {
    return static_cast<pthread_t>(reinterpret_cast<std::uintptr_t>(handle));
}

// Returned with free() by the caller, as the standard says.
char* resolveFileName(const char* filename) {
    if (!filename)
        return nullptr;
    std::size_t n = std::strlen(filename) + 7; // "lib" + name + ".so" + NUL
    char* out = static_cast<char*>(std::malloc(n));
    if (out)
        std::snprintf(out, n, "lib%s.so", filename);
    return out;
}

// A thread's start function, spelled out because not every header set names its type.
using ThreadFunc = CMPI_THREAD_RETURN(CMPI_THREAD_CDECL*)(void*);

CMPI_THREAD_TYPE newThread(ThreadFunc start, void* parm, int detached) {
    if (!start)
        return nullptr;
    pthread_t thread{};
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0)
        return nullptr;
    if (detached)
        pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    int rc = pthread_create(&thread, &attr, start, parm);
    pthread_attr_destroy(&attr);
    if (rc != 0)
        return nullptr;
    return reinterpret_cast<CMPI_THREAD_TYPE>(static_cast<std::uintptr_t>(thread));
}

int joinThread(CMPI_THREAD_TYPE thread, CMPI_THREAD_RETURN* retval) {
    if (!thread)
        return EINVAL;
    return pthread_join(threadOf(thread), retval);
}

int exitThread(CMPI_THREAD_RETURN returnCode) {
    pthread_exit(returnCode);
}

int cancelThread(CMPI_THREAD_TYPE thread) {
    if (!thread)
        return EINVAL;
    return pthread_cancel(threadOf(thread));
}

int threadSleep(CMPIUint32 msec) {
    timespec left{static_cast<time_t>(msec / 1000), static_cast<long>(msec % 1000) * 1000000L};
    while (nanosleep(&left, &left) != 0) {
        if (errno != EINTR)
            return errno;
    }
    return 0;
}

int threadOnce(int* once, void (*init)(void)) {
    if (!once || !init)
        return EINVAL;
    return pthread_once(reinterpret_cast<pthread_once_t*>(once), init);
}

int createThreadKey(CMPI_THREAD_KEY_TYPE* key, void (*cleanup)(void*)) {
    if (!key)
        return EINVAL;
    return pthread_key_create(key, cleanup);
}

int destroyThreadKey(CMPI_THREAD_KEY_TYPE key) {
    return pthread_key_delete(key);
}

void* getThreadSpecific(CMPI_THREAD_KEY_TYPE key) {
    return pthread_getspecific(key);
}

int setThreadSpecific(CMPI_THREAD_KEY_TYPE key, void* value) {
    return pthread_setspecific(key, value);
}

// Recursive, so that a provider locking twice on one thread does not deadlock itself.
CMPI_MUTEX_TYPE newMutex(int) {
    auto* m = new (std::nothrow) pthread_mutex_t;
    if (!m)
        return nullptr;
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    int rc = pthread_mutex_init(m, &attr);
    pthread_mutexattr_destroy(&attr);
    if (rc != 0) {
        delete m;
        return nullptr;
    }
    return m;
}

void destroyMutex(CMPI_MUTEX_TYPE mutex) {
    if (!mutex)
        return;
    auto* m = static_cast<pthread_mutex_t*>(mutex);
    pthread_mutex_destroy(m);
    delete m;
}

void lockMutex(CMPI_MUTEX_TYPE mutex) {
    if (mutex)
        pthread_mutex_lock(static_cast<pthread_mutex_t*>(mutex));
}

void unlockMutex(CMPI_MUTEX_TYPE mutex) {
    if (mutex)
        pthread_mutex_unlock(static_cast<pthread_mutex_t*>(mutex));
}

CMPI_COND_TYPE newCondition(int) {
    auto* c = new (std::nothrow) pthread_cond_t;
    if (!c)
        return nullptr;
    if (pthread_cond_init(c, nullptr) != 0) {
        delete c;
        return nullptr;
    }
    return c;
}

void destroyCondition(CMPI_COND_TYPE cond) {
    if (!cond)
        return;
    auto* c = static_cast<pthread_cond_t*>(cond);
    pthread_cond_destroy(c);
    delete c;
}

int condWait(CMPI_COND_TYPE cond, CMPI_MUTEX_TYPE mutex) {
    if (!cond || !mutex)
        return EINVAL;
    return pthread_cond_wait(static_cast<pthread_cond_t*>(cond),
                             static_cast<pthread_mutex_t*>(mutex));
}

// `wait` is an absolute CLOCK_REALTIME time, as for pthread_cond_timedwait.
int timedCondWait(CMPI_COND_TYPE cond, CMPI_MUTEX_TYPE mutex, struct timespec* wait) {
    if (!cond || !mutex)
        return EINVAL;
    if (!wait)
        return condWait(cond, mutex);
    return pthread_cond_timedwait(static_cast<pthread_cond_t*>(cond),
                                  static_cast<pthread_mutex_t*>(mutex), wait);
}

int signalCondition(CMPI_COND_TYPE cond) {
    if (!cond)
        return EINVAL;
    return pthread_cond_signal(static_cast<pthread_cond_t*>(cond));
}

CMPIBrokerExtFT extTable = {CMPIVersion200,  resolveFileName,  newThread,         joinThread,
                            exitThread,      cancelThread,     threadSleep,       threadOnce,
                            createThreadKey, destroyThreadKey, getThreadSpecific, setThreadSpecific,
                            newMutex,        destroyMutex,     lockMutex,         unlockMutex,
                            newCondition,    destroyCondition, condWait,          timedCondWait,
                            signalCondition};

} // namespace

CMPIBrokerExtFT* OsServices::table() {
    return &extTable;
}

} // namespace diaghost
