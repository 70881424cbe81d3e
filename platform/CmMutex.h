#pragma once

#include <mutex>

#include "platform/CmThreadSafety.h"

/// A mutex that one thread can lock once.
class CM_CAPABILITY CCmMutexThread {
 public:
    void Lock() CM_ACQUIRE() { m_mutex.lock(); }
    void UnLock() CM_RELEASE() { m_mutex.unlock(); }

 private:
    std::mutex m_mutex;
};

/// A mutex that its owner may lock again. It is free after the same number of unlocks.
class CM_CAPABILITY CCmMutexThreadRecursive {
 public:
    void Lock() CM_ACQUIRE() { m_mutex.lock(); }
    void UnLock() CM_RELEASE() { m_mutex.unlock(); }

 private:
    std::recursive_mutex m_mutex;
};

/// Locks a mutex in its constructor and unlocks it in its destructor.
template <class MutexType>
class CM_SCOPED_CAPABILITY CCmMutexGuardT {
 public:
    explicit CCmMutexGuardT(MutexType& aMutex) CM_ACQUIRE(aMutex) : m_mutex(aMutex) {
        m_mutex.Lock();
    }
    ~CCmMutexGuardT() CM_RELEASE() { m_mutex.UnLock(); }
    CCmMutexGuardT(const CCmMutexGuardT&) = delete;
    CCmMutexGuardT& operator=(const CCmMutexGuardT&) = delete;

 private:
    MutexType& m_mutex;
};
