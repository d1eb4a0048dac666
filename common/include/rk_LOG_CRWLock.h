// rk_LOG_CRWLock: a reader-writer lock built on one mutex and two condition variables, with the
// process-wide instance gLogLock that serialises the common debug log.
//
// Policy: waiting writers are preferred over new readers, but once 10 read locks have been
// granted since the last write lock a writer is waiting, further readers wait too. After a
// write unlock the waiting readers go first; after the last read unlock one writer goes first.
//
// Three layers:
//   my_rwlock_*  the lock itself on a caller's my_rwlock_t: 0 or an error number
//                (EINVAL 22, EBUSY 16, EDEADLK 35, or the failing pthread call's error);
//   tc_rwlock_*  owns the heap block of the state: 0, RK_TC_* codes below;
//   rk_LOG_CRWLock  the class: its methods return 1 when the lock was never set up, otherwise
//                the tc_ layer's code.
#ifndef RK_LOG_CRWLOCK_H
#define RK_LOG_CRWLOCK_H

#include <pthread.h>

#include <cstdint>

constexpr int32_t RK_RWLOCK_VALID_MARK = 0x19283746;
constexpr int RK_RWLOCK_MAX_READS_AHEAD_OF_WRITER = 10;

struct my_rwlock_t {
    pthread_mutex_t mutex;
    pthread_cond_t readers;
    pthread_cond_t writers;
    int32_t valid;           // RK_RWLOCK_VALID_MARK when set up, 0 after destruction
    int32_t waitingReaders;
    int32_t waitingWriters;
    int32_t refCount;        // 0 free, n > 0 held by n readers, -1 held by a writer
    int32_t readsSinceWrite; // read locks granted since the last write lock
};

// Errors of the my_ layer.
constexpr int RK_RWLOCK_EINVAL = 22;
constexpr int RK_RWLOCK_EBUSY = 16;
constexpr int RK_RWLOCK_EDEADLK = 35;

int my_rwlock_init(my_rwlock_t* lock, void* attribute);  // attribute must be NULL
int my_rwlock_destroy(my_rwlock_t* lock);                // 16 while held or waited for
int my_rwlock_rdlock(my_rwlock_t* lock);
int my_rwlock_wrlock(my_rwlock_t* lock);
int my_rwlock_tryrdlock(my_rwlock_t* lock);
int my_rwlock_trywrlock(my_rwlock_t* lock);
int my_rwlock_unlock(my_rwlock_t* lock);  // releases a read or the write lock

// Results of the tc_ layer.
constexpr int RK_TC_OK = 0;
constexpr int RK_TC_NO_STATE_TO_DESTROY = 1;
constexpr int RK_TC_INNER_FAILED = 2;
constexpr int RK_TC_NULL_STATE = 3;
constexpr int RK_TC_NO_MEMORY = 4;

// Allocates and sets up *state; on any failure *state stays NULL.
int tc_rwlock_initial(my_rwlock_t** state, void* attribute);
// Tears down, frees and clears *state; a held lock is left untouched (2).
int tc_rwlock_destroy(my_rwlock_t** state);
int tc_rwlock_rdlock(my_rwlock_t* state);
int tc_rwlock_unrdlock(my_rwlock_t* state);
int tc_rwlock_wrlock(my_rwlock_t* state);
int tc_rwlock_unwrlock(my_rwlock_t* state);
int tc_rwlock_tryrdlock(my_rwlock_t* state);
int tc_rwlock_trywrlock(my_rwlock_t* state);

class rk_LOG_CRWLock {
public:
    explicit rk_LOG_CRWLock(void* attribute);
    ~rk_LOG_CRWLock();
    rk_LOG_CRWLock(const rk_LOG_CRWLock&) = delete;
    rk_LOG_CRWLock& operator=(const rk_LOG_CRWLock&) = delete;

    bool Ok() const { return m_ok; }
    int StartReading();
    int EndReading();
    int StartWriting();
    int EndWriting();
    int TryReading();
    int TryWriting();

private:
    bool m_ok;
    my_rwlock_t* m_state;
};

// Take the lock (if it was set up) for the sentry's lifetime.
class rk_LOG_CReaderSentry {
public:
    explicit rk_LOG_CReaderSentry(rk_LOG_CRWLock& lock);
    ~rk_LOG_CReaderSentry();
    rk_LOG_CReaderSentry(const rk_LOG_CReaderSentry&) = delete;
    rk_LOG_CReaderSentry& operator=(const rk_LOG_CReaderSentry&) = delete;

private:
    rk_LOG_CRWLock& m_lock;
};

class rk_LOG_CWriterSentry {
public:
    explicit rk_LOG_CWriterSentry(rk_LOG_CRWLock& lock);
    ~rk_LOG_CWriterSentry();
    rk_LOG_CWriterSentry(const rk_LOG_CWriterSentry&) = delete;
    rk_LOG_CWriterSentry& operator=(const rk_LOG_CWriterSentry&) = delete;

private:
    rk_LOG_CRWLock& m_lock;
};

// StartReading, EndReading, StartWriting, EndWriting on a lock pointer; 1 for a NULL pointer.
int _rdLock(rk_LOG_CRWLock* lock);
int _rdUnlock(rk_LOG_CRWLock* lock);
int _wrLock(rk_LOG_CRWLock* lock);
int _wrUnlock(rk_LOG_CRWLock* lock);

// The lock of the common debug log, set up when the library is loaded.
extern rk_LOG_CRWLock gLogLock;

#endif
