#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "fileop/FileOperation.h"
#include "platform/CmThread.h"
#include "platform/CmThreadToken.h"

class CGatherAge;

/// The files of one thread that have gathered bytes, in the order of their oldest bytes. Used to
/// flush bytes when they reach the age that the host has set (CCacheFileManager::SetGatherAge).
///
/// Reference-counted. The process keeps the list of a thread as long as an open file belongs to it,
/// and events hold references. A file is in the list of the thread that gathered its first byte,
/// and only that thread flushes it from the list. One mutex of the process guards all lists. An
/// append takes it when it gathers the first byte of a block or passes the block on, but not for
/// the bytes in between. It is not held while a file is flushed: m_pFlushing names that file, and
/// another thread that wants to use the file waits.
///
/// If the thread has an asynchronous file, the worker watches the list: a timed event in the
/// worker's queue checks the list when the oldest file is due. If a file is due then, the
/// event sets the state of the list to Due and posts an event to the caller thread. While the list
/// has a synchronous file, or no watch, the thread checks the clock in each call: the worker may be
/// writing for seconds, which must not delay a synchronous file. Nothing here fails: if there is no
/// memory for a watch, the thread checks the clock.
class CGatherList final : public CCmReferenceControlT<CCmMutexThread> {
 public:
    using Clock = std::chrono::steady_clock;

    /// For the thread with this token.
    explicit CGatherList(const void* pToken) : m_pToken(pToken) {}

    /// Whether it is the list of the calling thread.
    bool IsMine() const { return m_pToken == CmThreadToken(); }

    /// Whether FlushIfDue has anything to do. On the thread of the list.
    bool MayHaveDueFile() const { return m_state.load(std::memory_order_relaxed) != Idle; }
    /// Flushes the files that are due. The coarse clock is checked first; if it shows that no file
    /// is due, nothing else is done. On the thread of the list.
    void FlushIfDue();

    /// Flushes the files whose oldest byte has reached the age. On the thread of the list.
    void FlushDue();

 private:
    friend class CGatherAge;
    friend class CGatherLists;
    friend class CGatherWatch;

    /// Idle: nothing is gathered, or only the worker checks the list. UseClock: the thread checks
    /// the clock. Due: the worker has found that a file is due.
    enum State { Idle, UseClock, Due };

    static constexpr Clock::time_point c_noWatch = Clock::time_point::max();

    // Called with the mutex locked. Those that return bool return whether the caller has to call
    // Watch after it has unlocked the mutex.
    bool Link(CGatherAge& aFile, const tagFileThreads& aThreads);
    void Unlink(CGatherAge& aFile);
    CGatherAge* TakeDue();
    bool Update();
    void StartClock();
    void EndWatch();
    bool IsWatched() const { return m_watchTime != c_noWatch; }
    bool IsWatchedBy(std::uint64_t qwWatch) const { return IsWatched() && m_qwWatch == qwWatch; }
    void AfterForkInChild();
    Clock::time_point DueTime() const;

    /// Posts the timed event that checks the list when the oldest file is due. Without the mutex.
    void Watch();

    const void* const m_pToken;

    // Written with the mutex locked; the thread of the list reads them without it.
    std::atomic<State> m_state{Idle};
    std::atomic<std::int64_t> m_nCheckTime{0};  // of the coarse clock; no file is due before

    // Guarded by the mutex.
    CGatherAge* m_pFirst = nullptr;  // the file with the oldest byte
    CGatherAge* m_pLast = nullptr;
    CGatherAge* m_pFlushing = nullptr;    // is not linked meanwhile
    std::uint32_t m_dwFiles = 0;          // how many open files belong to the list
    std::uint32_t m_dwWithoutWorker = 0;  // how many linked files are synchronous
    std::uint64_t m_qwWatch = 0;          // the number of the watch; earlier watches do nothing
    Clock::time_point m_watchTime = c_noWatch;
    bool m_bNeedsWatch = false;    // the age was changed, so Watch has to be called
    CRefPtr<ACmThread> m_pWorker;  // of the last linked asynchronous file
    CRefPtr<ACmThread> m_pCaller;
    CRefPtr<CGatherList> m_pNext;  // the list of another thread
};
