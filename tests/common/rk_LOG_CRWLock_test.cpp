#include "rk_LOG_CRWLock.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Counters {
    int waitingReaders;
    int waitingWriters;
    int refCount;
    int readsSinceWrite;
};

Counters Read(my_rwlock_t& lock) {
    pthread_mutex_lock(&lock.mutex);
    Counters counters{lock.waitingReaders, lock.waitingWriters, lock.refCount, lock.readsSinceWrite};
    pthread_mutex_unlock(&lock.mutex);
    return counters;
}

// Bounded polling: true as soon as the condition holds, false after five seconds.
bool WaitFor(const std::function<bool()>& condition) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

class RwLockTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(my_rwlock_init(&m_lock, nullptr), 0); }
    void TearDown() override { EXPECT_EQ(my_rwlock_destroy(&m_lock), 0); }

    my_rwlock_t m_lock;
    std::atomic<int> m_sequence{0};
};

TEST(RwLockCodes, InnerLayer) {
    EXPECT_EQ(my_rwlock_init(nullptr, nullptr), RK_RWLOCK_EINVAL);
    my_rwlock_t lock;
    int attribute = 0;
    EXPECT_EQ(my_rwlock_init(&lock, &attribute), RK_RWLOCK_EINVAL);
    EXPECT_EQ(my_rwlock_rdlock(nullptr), RK_RWLOCK_EINVAL);
    EXPECT_EQ(my_rwlock_unlock(nullptr), RK_RWLOCK_EINVAL);

    ASSERT_EQ(my_rwlock_init(&lock, nullptr), 0);
    EXPECT_EQ(lock.valid, RK_RWLOCK_VALID_MARK);
    EXPECT_EQ(my_rwlock_unlock(&lock), RK_RWLOCK_EDEADLK);
    ASSERT_EQ(my_rwlock_rdlock(&lock), 0);
    EXPECT_EQ(my_rwlock_trywrlock(&lock), RK_RWLOCK_EBUSY);
    EXPECT_EQ(my_rwlock_destroy(&lock), RK_RWLOCK_EBUSY);
    ASSERT_EQ(my_rwlock_unlock(&lock), 0);
    ASSERT_EQ(my_rwlock_wrlock(&lock), 0);
    EXPECT_EQ(my_rwlock_tryrdlock(&lock), RK_RWLOCK_EBUSY);
    EXPECT_EQ(my_rwlock_trywrlock(&lock), RK_RWLOCK_EBUSY);
    EXPECT_EQ(my_rwlock_destroy(&lock), RK_RWLOCK_EBUSY);
    ASSERT_EQ(my_rwlock_unlock(&lock), 0);

    lock.refCount = -2;  // a corrupt count
    EXPECT_EQ(my_rwlock_unlock(&lock), RK_RWLOCK_EDEADLK);
    lock.refCount = 0;

    ASSERT_EQ(my_rwlock_destroy(&lock), 0);
    EXPECT_EQ(lock.valid, 0);
    EXPECT_EQ(my_rwlock_rdlock(&lock), RK_RWLOCK_EINVAL);
    EXPECT_EQ(my_rwlock_destroy(&lock), RK_RWLOCK_EINVAL);
}

TEST(RwLockCodes, OwningLayer) {
    EXPECT_EQ(tc_rwlock_rdlock(nullptr), RK_TC_NULL_STATE);
    EXPECT_EQ(tc_rwlock_unwrlock(nullptr), RK_TC_NULL_STATE);
    my_rwlock_t* state = nullptr;
    EXPECT_EQ(tc_rwlock_destroy(&state), RK_TC_NO_STATE_TO_DESTROY);
    int attribute = 0;
    EXPECT_EQ(tc_rwlock_initial(&state, &attribute), RK_TC_INNER_FAILED);
    EXPECT_EQ(state, nullptr);

    ASSERT_EQ(tc_rwlock_initial(&state, nullptr), RK_TC_OK);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(tc_rwlock_unrdlock(state), RK_TC_INNER_FAILED);  // 35 below
    ASSERT_EQ(tc_rwlock_wrlock(state), RK_TC_OK);
    EXPECT_EQ(tc_rwlock_tryrdlock(state), RK_TC_INNER_FAILED);
    EXPECT_EQ(tc_rwlock_destroy(&state), RK_TC_INNER_FAILED);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(tc_rwlock_unwrlock(state), RK_TC_OK);
    EXPECT_EQ(tc_rwlock_destroy(&state), RK_TC_OK);
    EXPECT_EQ(state, nullptr);
}

TEST_F(RwLockTest, TryLocksLeaveTheGrantedReadCount) {
    for (int i = 0; i < 3; ++i) ASSERT_EQ(my_rwlock_rdlock(&m_lock), 0);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(my_rwlock_unlock(&m_lock), 0);
    ASSERT_EQ(my_rwlock_tryrdlock(&m_lock), 0);
    EXPECT_EQ(Read(m_lock).refCount, 1);
    EXPECT_EQ(Read(m_lock).readsSinceWrite, 3);
    ASSERT_EQ(my_rwlock_unlock(&m_lock), 0);
    ASSERT_EQ(my_rwlock_trywrlock(&m_lock), 0);
    EXPECT_EQ(Read(m_lock).refCount, -1);
    EXPECT_EQ(Read(m_lock).readsSinceWrite, 3);
    ASSERT_EQ(my_rwlock_unlock(&m_lock), 0);
    ASSERT_EQ(my_rwlock_wrlock(&m_lock), 0);
    EXPECT_EQ(Read(m_lock).readsSinceWrite, 0);
    ASSERT_EQ(my_rwlock_unlock(&m_lock), 0);
}

TEST_F(RwLockTest, WaitingWriterHoldsBackTheEleventhReader) {
    ASSERT_EQ(my_rwlock_rdlock(&m_lock), 0);
    int writerTurn = 0;
    std::thread writer([&] {
        EXPECT_EQ(my_rwlock_wrlock(&m_lock), 0);
        writerTurn = ++m_sequence;
        EXPECT_EQ(my_rwlock_unlock(&m_lock), 0);
    });
    EXPECT_TRUE(WaitFor([&] { return Read(m_lock).waitingWriters == 1; }));

    for (int granted = 2; granted <= 10; ++granted) EXPECT_EQ(my_rwlock_rdlock(&m_lock), 0);
    int tryResult = my_rwlock_tryrdlock(&m_lock);
    EXPECT_EQ(tryResult, RK_RWLOCK_EBUSY);
    if (tryResult == 0) my_rwlock_unlock(&m_lock);  // keep a failure from hanging the test
    int readerTurn = 0;
    std::thread eleventh([&] {
        EXPECT_EQ(my_rwlock_rdlock(&m_lock), 0);
        readerTurn = ++m_sequence;
        EXPECT_EQ(my_rwlock_unlock(&m_lock), 0);
    });
    EXPECT_TRUE(WaitFor([&] { return Read(m_lock).waitingReaders == 1; }));
    EXPECT_EQ(Read(m_lock).refCount, 10);

    // The last of the ten unlocks hands the lock to the writer, and only then the reader enters.
    for (int held = 10; held > 0; --held) EXPECT_EQ(my_rwlock_unlock(&m_lock), 0);
    writer.join();
    eleventh.join();
    EXPECT_EQ(writerTurn, 1);
    EXPECT_EQ(readerTurn, 2);
}

TEST_F(RwLockTest, WriteUnlockLetsWaitingReadersGoFirst) {
    ASSERT_EQ(my_rwlock_wrlock(&m_lock), 0);
    std::atomic<bool> releaseReader{false};
    int readerTurn = 0;
    int writerTurn = 0;
    std::thread reader([&] {
        EXPECT_EQ(my_rwlock_rdlock(&m_lock), 0);
        readerTurn = ++m_sequence;
        WaitFor([&] { return releaseReader.load(); });
        EXPECT_EQ(my_rwlock_unlock(&m_lock), 0);
    });
    std::thread writer([&] {
        EXPECT_EQ(my_rwlock_wrlock(&m_lock), 0);
        writerTurn = ++m_sequence;
        EXPECT_EQ(my_rwlock_unlock(&m_lock), 0);
    });
    EXPECT_TRUE(WaitFor([&] {
        Counters counters = Read(m_lock);
        return counters.waitingReaders == 1 && counters.waitingWriters == 1;
    }));

    EXPECT_EQ(my_rwlock_unlock(&m_lock), 0);
    EXPECT_TRUE(WaitFor([&] { return Read(m_lock).refCount == 1; }));
    EXPECT_EQ(Read(m_lock).waitingWriters, 1);
    releaseReader = true;
    reader.join();
    writer.join();
    EXPECT_EQ(readerTurn, 1);
    EXPECT_EQ(writerTurn, 2);
}

TEST_F(RwLockTest, WritersExcludeEveryoneUnderLoad) {
    long first = 0;
    long second = 0;
    std::atomic<bool> torn{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 300; ++i) {
                ASSERT_EQ(my_rwlock_wrlock(&m_lock), 0);
                ++first;
                std::this_thread::yield();
                ++second;
                ASSERT_EQ(my_rwlock_unlock(&m_lock), 0);
            }
        });
        threads.emplace_back([&] {
            for (int i = 0; i < 300; ++i) {
                ASSERT_EQ(my_rwlock_rdlock(&m_lock), 0);
                if (first != second) torn = true;
                ASSERT_EQ(my_rwlock_unlock(&m_lock), 0);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(torn);
    EXPECT_EQ(first, 900);
    EXPECT_EQ(Read(m_lock).refCount, 0);
}

TEST(RwLockClass, MethodsSentriesAndWrappers) {
    int attribute = 0;
    rk_LOG_CRWLock broken(&attribute);
    EXPECT_FALSE(broken.Ok());
    EXPECT_EQ(broken.StartReading(), 1);
    EXPECT_EQ(broken.EndWriting(), 1);
    EXPECT_EQ(broken.TryWriting(), 1);
    { rk_LOG_CWriterSentry unused(broken); }
    EXPECT_EQ(_rdLock(nullptr), 1);
    EXPECT_EQ(_wrUnlock(nullptr), 1);

    rk_LOG_CRWLock lock(nullptr);
    ASSERT_TRUE(lock.Ok());
    {
        rk_LOG_CWriterSentry writer(lock);
        EXPECT_EQ(lock.TryReading(), RK_TC_INNER_FAILED);
    }
    {
        rk_LOG_CReaderSentry reader(lock);
        EXPECT_EQ(lock.TryWriting(), RK_TC_INNER_FAILED);
        EXPECT_EQ(lock.TryReading(), RK_TC_OK);
        EXPECT_EQ(lock.EndReading(), RK_TC_OK);
    }
    EXPECT_EQ(lock.EndReading(), RK_TC_INNER_FAILED);
    EXPECT_EQ(_wrLock(&lock), 0);
    EXPECT_EQ(lock.TryWriting(), RK_TC_INNER_FAILED);
    EXPECT_EQ(_wrUnlock(&lock), 0);
    EXPECT_EQ(_rdLock(&lock), 0);
    EXPECT_EQ(_rdUnlock(&lock), 0);
    EXPECT_TRUE(gLogLock.Ok());
}

}  // namespace
