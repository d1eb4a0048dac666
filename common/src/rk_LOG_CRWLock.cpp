// The reader-writer lock in its three layers, and the log's process-wide instance.
#include "rk_LOG_CRWLock.h"

#include <algorithm>
#include <cstdlib>

namespace {

// The size of the state block the lock asks for: 160 bytes, and never smaller than the state.
constexpr size_t kStateBlockSize = std::max<size_t>(160, sizeof(my_rwlock_t));

bool IsValid(const my_rwlock_t* lock) { return lock != nullptr && lock->valid == RK_RWLOCK_VALID_MARK; }

// The first test a reader must pass to be granted at once.
bool ReaderMayEnter(const my_rwlock_t* lock) {
    return lock->refCount >= 0 &&
           (lock->waitingWriters == 0 || lock->readsSinceWrite < RK_RWLOCK_MAX_READS_AHEAD_OF_WRITER);
}

int Fail(my_rwlock_t* lock, int error) {
    pthread_mutex_unlock(&lock->mutex);
    return error;
}

// Waits at least once, then until no writer holds the lock: a reader held back by the
// writer preference must not slip in before a wake-up.
int WaitAsReader(my_rwlock_t* lock) {
    ++lock->waitingReaders;
    int error = 0;
    do {
        error = pthread_cond_wait(&lock->readers, &lock->mutex);
    } while (error == 0 && lock->refCount < 0);
    --lock->waitingReaders;
    return error;
}

int WaitAsWriter(my_rwlock_t* lock) {
    ++lock->waitingWriters;
    int error = 0;
    while (error == 0 && lock->refCount != 0) error = pthread_cond_wait(&lock->writers, &lock->mutex);
    --lock->waitingWriters;
    return error;
}

// Wake-ups after an unlock: a write unlock lets the readers go first, a last read unlock a writer.
int WakeAfterWrite(my_rwlock_t* lock) {
    if (lock->waitingReaders > 0) return pthread_cond_broadcast(&lock->readers);
    if (lock->waitingWriters > 0) return pthread_cond_signal(&lock->writers);
    return 0;
}

int WakeAfterLastRead(my_rwlock_t* lock) {
    if (lock->waitingWriters > 0) return pthread_cond_signal(&lock->writers);
    if (lock->waitingReaders > 0) return pthread_cond_broadcast(&lock->readers);
    return 0;
}

int ToTcResult(int innerResult) { return innerResult == 0 ? RK_TC_OK : RK_TC_INNER_FAILED; }

}  // namespace

int my_rwlock_init(my_rwlock_t* lock, void* attribute) {
    if (lock == nullptr || attribute != nullptr) return RK_RWLOCK_EINVAL;
    int error = pthread_mutex_init(&lock->mutex, nullptr);
    if (error != 0) return error;
    error = pthread_cond_init(&lock->readers, nullptr);
    if (error != 0) {
        pthread_mutex_destroy(&lock->mutex);
        return error;
    }
    error = pthread_cond_init(&lock->writers, nullptr);
    if (error != 0) {
        pthread_cond_destroy(&lock->readers);
        pthread_mutex_destroy(&lock->mutex);
        return error;
    }
    lock->waitingReaders = 0;
    lock->waitingWriters = 0;
    lock->refCount = 0;
    lock->readsSinceWrite = 0;
    lock->valid = RK_RWLOCK_VALID_MARK;
    return 0;
}

int my_rwlock_destroy(my_rwlock_t* lock) {
    if (!IsValid(lock)) return RK_RWLOCK_EINVAL;
    int error = pthread_mutex_lock(&lock->mutex);
    if (error != 0) return error;
    if (lock->refCount != 0 || lock->waitingReaders != 0 || lock->waitingWriters != 0) {
        return Fail(lock, RK_RWLOCK_EBUSY);
    }
    lock->valid = 0;
    pthread_mutex_unlock(&lock->mutex);
    int mutexError = pthread_mutex_destroy(&lock->mutex);
    int readersError = pthread_cond_destroy(&lock->readers);
    int writersError = pthread_cond_destroy(&lock->writers);
    if (mutexError != 0) return mutexError;
    return readersError != 0 ? readersError : writersError;
}

int my_rwlock_rdlock(my_rwlock_t* lock) {
    if (!IsValid(lock)) return RK_RWLOCK_EINVAL;
    int error = pthread_mutex_lock(&lock->mutex);
    if (error != 0) return error;
    if (!ReaderMayEnter(lock)) {
        error = WaitAsReader(lock);
        if (error != 0) return Fail(lock, error);
    }
    ++lock->refCount;
    ++lock->readsSinceWrite;
    return pthread_mutex_unlock(&lock->mutex);
}

int my_rwlock_wrlock(my_rwlock_t* lock) {
    if (!IsValid(lock)) return RK_RWLOCK_EINVAL;
    int error = pthread_mutex_lock(&lock->mutex);
    if (error != 0) return error;
    error = WaitAsWriter(lock);
    if (error != 0) return Fail(lock, error);
    lock->refCount = -1;
    lock->readsSinceWrite = 0;
    return pthread_mutex_unlock(&lock->mutex);
}

int my_rwlock_tryrdlock(my_rwlock_t* lock) {
    if (!IsValid(lock)) return RK_RWLOCK_EINVAL;
    int error = pthread_mutex_lock(&lock->mutex);
    if (error != 0) return error;
    if (!ReaderMayEnter(lock)) return Fail(lock, RK_RWLOCK_EBUSY);
    // readsSinceWrite stays: a try-read does not count towards the readers a waiting writer lets in.
    ++lock->refCount;
    return pthread_mutex_unlock(&lock->mutex);
}

int my_rwlock_trywrlock(my_rwlock_t* lock) {
    if (!IsValid(lock)) return RK_RWLOCK_EINVAL;
    int error = pthread_mutex_lock(&lock->mutex);
    if (error != 0) return error;
    if (lock->refCount != 0) return Fail(lock, RK_RWLOCK_EBUSY);
    // readsSinceWrite is not reset: only a blocking write lock starts a new count of readers.
    lock->refCount = -1;
    return pthread_mutex_unlock(&lock->mutex);
}

int my_rwlock_unlock(my_rwlock_t* lock) {
    if (!IsValid(lock)) return RK_RWLOCK_EINVAL;
    int error = pthread_mutex_lock(&lock->mutex);
    if (error != 0) return error;
    if (lock->refCount > 0) {
        --lock->refCount;
        error = lock->refCount == 0 ? WakeAfterLastRead(lock) : 0;
    } else if (lock->refCount == -1) {
        lock->refCount = 0;
        error = WakeAfterWrite(lock);
    } else {
        return Fail(lock, RK_RWLOCK_EDEADLK);  // a free lock or a corrupt count
    }
    if (error != 0) return Fail(lock, error);
    return pthread_mutex_unlock(&lock->mutex);
}

int tc_rwlock_initial(my_rwlock_t** state, void* attribute) {
    if (state == nullptr) return RK_TC_NULL_STATE;
    *state = nullptr;
    auto* block = static_cast<my_rwlock_t*>(std::malloc(kStateBlockSize));
    if (block == nullptr) return RK_TC_NO_MEMORY;
    if (my_rwlock_init(block, attribute) != 0) {
        std::free(block);
        return RK_TC_INNER_FAILED;
    }
    *state = block;
    return RK_TC_OK;
}

int tc_rwlock_destroy(my_rwlock_t** state) {
    if (state == nullptr || *state == nullptr) return RK_TC_NO_STATE_TO_DESTROY;
    if (my_rwlock_destroy(*state) != 0) return RK_TC_INNER_FAILED;
    std::free(*state);
    *state = nullptr;
    return RK_TC_OK;
}

int tc_rwlock_rdlock(my_rwlock_t* state) {
    return state == nullptr ? RK_TC_NULL_STATE : ToTcResult(my_rwlock_rdlock(state));
}

int tc_rwlock_unrdlock(my_rwlock_t* state) {
    return state == nullptr ? RK_TC_NULL_STATE : ToTcResult(my_rwlock_unlock(state));
}

int tc_rwlock_wrlock(my_rwlock_t* state) {
    return state == nullptr ? RK_TC_NULL_STATE : ToTcResult(my_rwlock_wrlock(state));
}

int tc_rwlock_unwrlock(my_rwlock_t* state) {
    return state == nullptr ? RK_TC_NULL_STATE : ToTcResult(my_rwlock_unlock(state));
}

int tc_rwlock_tryrdlock(my_rwlock_t* state) {
    return state == nullptr ? RK_TC_NULL_STATE : ToTcResult(my_rwlock_tryrdlock(state));
}

int tc_rwlock_trywrlock(my_rwlock_t* state) {
    return state == nullptr ? RK_TC_NULL_STATE : ToTcResult(my_rwlock_trywrlock(state));
}

namespace {
constexpr int kNotSetUp = 1;
}

rk_LOG_CRWLock::rk_LOG_CRWLock(void* attribute) : m_ok(false), m_state(nullptr) {
    m_ok = tc_rwlock_initial(&m_state, attribute) == RK_TC_OK;
}

rk_LOG_CRWLock::~rk_LOG_CRWLock() {
    // A lock still held or waited for is left in place: freeing it under its users is worse.
    if (m_ok && tc_rwlock_destroy(&m_state) == RK_TC_OK) m_ok = false;
}

int rk_LOG_CRWLock::StartReading() { return m_ok ? tc_rwlock_rdlock(m_state) : kNotSetUp; }
int rk_LOG_CRWLock::EndReading() { return m_ok ? tc_rwlock_unrdlock(m_state) : kNotSetUp; }
int rk_LOG_CRWLock::StartWriting() { return m_ok ? tc_rwlock_wrlock(m_state) : kNotSetUp; }
int rk_LOG_CRWLock::EndWriting() { return m_ok ? tc_rwlock_unwrlock(m_state) : kNotSetUp; }
int rk_LOG_CRWLock::TryReading() { return m_ok ? tc_rwlock_tryrdlock(m_state) : kNotSetUp; }
int rk_LOG_CRWLock::TryWriting() { return m_ok ? tc_rwlock_trywrlock(m_state) : kNotSetUp; }

rk_LOG_CReaderSentry::rk_LOG_CReaderSentry(rk_LOG_CRWLock& lock) : m_lock(lock) {
    if (m_lock.Ok()) m_lock.StartReading();
}

rk_LOG_CReaderSentry::~rk_LOG_CReaderSentry() {
    if (m_lock.Ok()) m_lock.EndReading();
}

rk_LOG_CWriterSentry::rk_LOG_CWriterSentry(rk_LOG_CRWLock& lock) : m_lock(lock) {
    if (m_lock.Ok()) m_lock.StartWriting();
}

rk_LOG_CWriterSentry::~rk_LOG_CWriterSentry() {
    if (m_lock.Ok()) m_lock.EndWriting();
}

int _rdLock(rk_LOG_CRWLock* lock) { return lock != nullptr ? lock->StartReading() : kNotSetUp; }
int _rdUnlock(rk_LOG_CRWLock* lock) { return lock != nullptr ? lock->EndReading() : kNotSetUp; }
int _wrLock(rk_LOG_CRWLock* lock) { return lock != nullptr ? lock->StartWriting() : kNotSetUp; }
int _wrUnlock(rk_LOG_CRWLock* lock) { return lock != nullptr ? lock->EndWriting() : kNotSetUp; }

rk_LOG_CRWLock gLogLock(nullptr);
