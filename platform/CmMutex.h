#pragma once

#include <mutex>

/// A mutex that one thread can lock once.
class CCmMutexThread {
 public:
    void Lock() { m_mutex.lock(); }
    void UnLock() { m_mutex.unlock(); }

 private:
    std::mutex m_mutex;
};

/// A mutex that its holder may lock again; it is free after as many unlocks.
class CCmMutexThreadRecursive {
 public:
    void Lock() { m_mutex.lock(); }
    void UnLock() { m_mutex.unlock(); }

 private:
    std::recursive_mutex m_mutex;
};

/// Holds a mutex from construction to destruction.
template <class MutexType>
class CCmMutexGuardT {
 public:
    explicit CCmMutexGuardT(MutexType& aMutex) : m_mutex(aMutex) { m_mutex.Lock(); }
    ~CCmMutexGuardT() { m_mutex.UnLock(); }
    CCmMutexGuardT(const CCmMutexGuardT&) = delete;
    CCmMutexGuardT& operator=(const CCmMutexGuardT&) = delete;

 private:
    MutexType& m_mutex;
};
