#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "fileop/FileOperation.h"
#include "platform/CmThread.h"
#include "platform/CmThreadToken.h"

class CGatherAge;

/// The gathering files of one thread by the time of their first byte, so that their bytes leave the
/// buffers before they are older than the host allows (CCacheFileManager::SetGatherAge).
///
/// Counted. The process keeps the list of a thread as long as an open file belongs to it, and
/// events hold references. A file is in the list of the thread that gathered its first byte, and
/// only that thread flushes it from there. One mutex of the process guards all lists. It is held to
/// link and unlink files, so only the first and the last byte of a block cost it, and never while a
/// file is flushed: the list names that file, and another thread that wants to use it waits.
///
/// If the thread has an asynchronous file, the worker watches the list: a timed event in the
/// worker's queue looks at the list when the oldest file is due. If it is, the event marks the list
/// and posts an event to the caller thread. Without a watch the thread itself looks at the clock in
/// each call. Nothing here fails: without memory for a watch the thread looks at the clock.
class CGatherList final : public CCmReferenceControlT<CCmMutexThread> {
 public:
    using Clock = std::chrono::steady_clock;

    /// For the thread with this token.
    explicit CGatherList(const void* pToken) : m_pToken(pToken) {}

    /// Whether it is the list of the calling thread.
    bool IsMine() const { return m_pToken == CmThreadToken(); }

    /// The thread of the list: whether Look has anything to do, and flushes what is due.
    bool MustLook() const { return m_state.load(std::memory_order_relaxed) != Idle; }
    void Look();

    /// Flushes the files whose oldest byte has reached the age. The thread of the list.
    void FlushDue();

 private:
    friend class CGatherAge;
    friend class CGatherLists;
    friend class CGatherWatch;

    /// Idle: nothing is gathered, or the worker watches. UseClock: the thread looks at the clock.
    /// Due: the worker has seen that a file is due.
    enum State { Idle, UseClock, Due };

    // With the mutex. Those that return bool: whether Watch has to be called without it.
    bool Link(CGatherAge& aFile, const tagFileThreads& aThreads);
    void Unlink(CGatherAge& aFile);
    CGatherAge* TakeDue();
    bool Update();
    void StartClock();
    void EndWatch();
    void Forget();
    Clock::time_point DueTime() const;

    /// Has the worker look when the oldest file is due.
    void Watch();

    const void* const m_pToken;

    // Written with the mutex; read without it by the thread of the list.
    std::atomic<State> m_state{Idle};
    std::atomic<std::int64_t> m_nLookTime{0};  // of the coarse clock: the thread looks closely then

    // Guarded by the mutex.
    CGatherAge* m_pFirst = nullptr;  // the file with the oldest byte
    CGatherAge* m_pLast = nullptr;
    CGatherAge* m_pFlushing = nullptr;  // not linked meanwhile
    std::uint32_t m_dwFiles = 0;        // how many open files belong to the list
    std::uint32_t m_dwWatch = 0;        // the number of the watch; earlier ones do nothing
    bool m_bWatched = false;
    bool m_bToWatch = false;       // a change of the age asks for a watch
    CRefPtr<ACmThread> m_pWorker;  // of the asynchronous file that was linked last
    CRefPtr<ACmThread> m_pCaller;
    CRefPtr<CGatherList> m_pNext;  // the list of another thread
};
