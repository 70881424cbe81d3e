#pragma once

#include <condition_variable>
#include <mutex>

#include "fileop/GatherList.h"
#include "platform/CmNeverDestroyed.h"

/// The lists of all threads, and the mutex that guards them.
///
/// One object for the process, never destroyed. Any thread. No other lock is taken while the mutex
/// is held, except the one of the memory allocator. A fork waits for the mutex; in the child the
/// lists are empty, because what the files of the parent have gathered is the parent's.
class CGatherLists {
 public:
    static CGatherLists& Instance() { return CmNeverDestroyed<CGatherLists>(); }

    std::mutex& Mutex() { return m_mutex; }

    // With the mutex.

    /// The list of the calling thread, which is made if bMake; null without one.
    CGatherList* Own(bool bMake);

    /// The file belongs to its list no more. What may have to be freed is returned, to be released
    /// without the mutex.
    CRefPtr<CGatherList> Leave(CGatherAge& aFile);

    /// Waits until the thread of aList is not flushing the file.
    void WaitForFlush(std::unique_lock<std::mutex>& aLock, const CGatherList& aList,
                      const CGatherAge& aFile);
    void OnFlushed() { m_flushed.notify_all(); }

    /// Without the mutex: the age has changed.
    void UpdateAll();

 private:
    CRefPtr<CGatherList> TakeOneToWatch();
    template <class T>
    friend T& CmNeverDestroyed();
    CGatherLists();
    void AfterForkInChild();

    std::mutex m_mutex;
    std::condition_variable m_flushed;
    CRefPtr<CGatherList> m_pFirst;  // guarded by the mutex
};
