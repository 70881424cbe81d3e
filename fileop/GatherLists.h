#pragma once

#include <condition_variable>
#include <mutex>

#include "fileop/GatherList.h"
#include "platform/CmNeverDestroyed.h"

/// The lists of all threads, and the mutex that guards them.
///
/// One object for the process, never destroyed. Any thread. No other lock is taken while the mutex
/// is held, except the one of the memory allocator. A fork waits for the mutex. In the child the
/// lists are empty, because the parent flushes the bytes that it has gathered.
class CGatherLists {
 public:
    static CGatherLists& Instance() { return CmNeverDestroyed<CGatherLists>(); }

    std::mutex& Mutex() { return m_mutex; }

    // Called with the mutex locked.

    /// The list of the calling thread. If it has none, one is created if bCreate is true;
    /// otherwise, or if there is no memory, the result is null.
    CGatherList* OfThisThread(bool bCreate);

    /// Removes the file from its list. If it was the last file of the list, the list is returned;
    /// the caller releases it after it has unlocked the mutex.
    CRefPtr<CGatherList> RemoveFile(CGatherAge& aFile);

    /// Waits while the thread of aList is flushing the file.
    void WaitForFlush(std::unique_lock<std::mutex>& aLock, const CGatherList& aList,
                      const CGatherAge& aFile);
    void OnFlushed() { m_flushed.notify_all(); }

    /// Called without the mutex after the age has changed.
    void UpdateAll();

 private:
    CRefPtr<CGatherList> TakeOneThatNeedsWatch();
    template <class T>
    friend T& CmNeverDestroyed();
    CGatherLists();
    void AfterForkInChild();

    std::mutex m_mutex;
    std::condition_variable m_flushed;
    CRefPtr<CGatherList> m_pFirst;  // guarded by the mutex
};
