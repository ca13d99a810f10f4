// Several threads using one broker at once, and the broker's own thread services.
#include "BrokerFixture.h"

#include <atomic>
#include <thread>

namespace diaghost::test {

using ThreadTest = BrokerFixture;

TEST_F(ThreadTest, ThreadsMakeCloneReadAndRenderObjectsAtOnce) {
    // One shared instance, read by every thread.
    CMPIInstance* shared = nullptr;
    {
        CallScope scope(*broker);
        CMPIInstance* inst = instance("Test_LogicalDevice");
        setChars(inst, "SystemName", "shared");
        setChars(inst, "CreationClassName", "Test_LogicalDevice");
        setChars(inst, "deviceID", "0");
        shared = CMClone(inst, nullptr);
    }
    const std::string sharedPath = pathText(CMGetObjectPath(shared, nullptr));
    constexpr int threads = 4;
    constexpr int rounds = 300;
    std::atomic<int> failures{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            std::vector<CMPIInstance*> kept;
            for (int i = 0; i < rounds; ++i) {
                CallScope scope(*broker);
                CMPIObjectPath* op = CMNewObjectPath(mb, "root/cimv2", "Test_Disk", nullptr);
                CMPIInstance* inst = CMNewInstance(mb, op, nullptr);
                std::string id = std::to_string(t) + "-" + std::to_string(i);
                CMSetProperty(inst, "deviceID", id.c_str(), CMPI_chars);
                CMPIUint64 size = static_cast<CMPIUint64>(i);
                CMSetProperty(inst, "BlockSize", &size, CMPI_uint64);
                CMPIObjectPath* own = CMGetObjectPath(inst, nullptr);
                std::string text = CMGetCharPtr(CMObjectPathToString(own, nullptr));
                if (text != "root/cimv2:Test_Disk.deviceID=\"" + id + "\"")
                    ++failures;
                CMPIObjectPath* sharedOp = CMGetObjectPath(shared, nullptr);
                if (CMGetCharPtr(CMObjectPathToString(sharedOp, nullptr)) != sharedPath)
                    ++failures;
                CMPIData d = CMGetProperty(shared, "SystemName", nullptr);
                if (std::string(CMGetCharPtr(d.value.string)) != "shared")
                    ++failures;
                CMPIInstance* copy = CMClone(shared, nullptr);
                CMRelease(copy);
                if (i % 10 == 0)
                    kept.push_back(CMClone(inst, nullptr));
            }
            for (CMPIInstance* k : kept) {
                if (CMGetProperty(k, "BlockSize", nullptr).state != CMPI_goodValue)
                    ++failures;
                CMRelease(k);
            }
        });
    }
    // Objects made outside any scope go to the broker's own arena, from several threads too.
    for (int t = 0; t < 2; ++t)
        workers.emplace_back([&] {
            for (int i = 0; i < 200; ++i)
                CMNewString(mb, "unscoped", nullptr);
        });
    for (std::thread& w : workers)
        w.join();
    EXPECT_EQ(failures.load(), 0);
    CMRelease(shared);
}

struct Shared {
    const CMPIBroker* mb;
    CMPI_MUTEX_TYPE mutex;
    CMPI_COND_TYPE cond;
    int counter = 0;
    bool ready = false;
};

extern "C" CMPI_THREAD_RETURN countUp(void* parm) {
    auto* s = static_cast<Shared*>(parm);
    for (int i = 0; i < 1000; ++i) {
        s->mb->xft->lockMutex(s->mutex);
        ++s->counter;
        s->mb->xft->unlockMutex(s->mutex);
    }
    s->mb->xft->lockMutex(s->mutex);
    s->ready = true;
    s->mb->xft->signalCondition(s->cond);
    s->mb->xft->unlockMutex(s->mutex);
    return parm;
}

pthread_key_t onceKey;
int onceCalls = 0;
extern "C" void initOnce() {
    ++onceCalls;
}

TEST_F(ThreadTest, OsServicesRunThreadsWithMutexesConditionsKeysAndOnce) {
    Shared s{mb, mb->xft->newMutex(0), mb->xft->newCondition(0)};
    ASSERT_NE(s.mutex, nullptr);
    ASSERT_NE(s.cond, nullptr);
    CMPI_THREAD_TYPE a = mb->xft->newThread(countUp, &s, 0);
    CMPI_THREAD_TYPE b = mb->xft->newThread(countUp, &s, 0);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    mb->xft->lockMutex(s.mutex);
    while (!s.ready)
        EXPECT_EQ(mb->xft->condWait(s.cond, s.mutex), 0);
    mb->xft->unlockMutex(s.mutex);
    void* result = nullptr;
    EXPECT_EQ(mb->xft->joinThread(a, &result), 0);
    EXPECT_EQ(result, &s);
    EXPECT_EQ(mb->xft->joinThread(b, nullptr), 0);
    EXPECT_EQ(s.counter, 2000);

    // A timed wait with nobody signalling times out.
    timespec deadline{};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_nsec += 1000000;
    if (deadline.tv_nsec >= 1000000000) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000;
    }
    mb->xft->lockMutex(s.mutex);
    EXPECT_EQ(mb->xft->timedCondWait(s.cond, s.mutex, &deadline), ETIMEDOUT);
    mb->xft->unlockMutex(s.mutex);
    mb->xft->destroyCondition(s.cond);
    mb->xft->destroyMutex(s.mutex);

    ASSERT_EQ(mb->xft->createThreadKey(&onceKey, nullptr), 0);
    int value = 5;
    EXPECT_EQ(mb->xft->setThreadSpecific(onceKey, &value), 0);
    EXPECT_EQ(mb->xft->getThreadSpecific(onceKey), &value);
    EXPECT_EQ(mb->xft->destroyThreadKey(onceKey), 0);

    static int once = PTHREAD_ONCE_INIT;
    EXPECT_EQ(mb->xft->threadOnce(&once, initOnce), 0);
    EXPECT_EQ(mb->xft->threadOnce(&once, initOnce), 0);
    EXPECT_EQ(onceCalls, 1);
    EXPECT_EQ(mb->xft->threadSleep(1), 0);
}

} // namespace diaghost::test
