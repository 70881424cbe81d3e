#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

/// Holds one callable that a host installs and that any thread calls.
///
/// The callable runs without a lock, and on several threads at the same time if they call at the
/// same time. Replacing it waits for the calls of earlier callables on other threads, so a host may
/// destroy what they use as soon as Set has returned. Set does not wait if it is called from inside
/// a call.
///
/// It can be used after a fork if its owner calls the three operations for that
/// (CmRegisterForkHandlers). A child has only the thread that forked, and so only the calls of that
/// thread.
template <class Function>
class CCmCallSlot {
 public:
    /// Installs aFunction, or removes the callable if aFunction is empty. aOnSwap runs in the same
    /// step, with the lock held. If this throws std::bad_alloc, the old callable stays.
    template <class OnSwap>
    void Set(Function aFunction, OnSwap aOnSwap) {
        std::shared_ptr<const Entry> pEntry;
        if (aFunction) pEntry = std::make_shared<const Entry>(Entry{std::move(aFunction)});
        std::unique_lock<std::mutex> aLock(m_mutex);
        m_pEntry.swap(pEntry);
        const std::uint64_t qwVersion = ++m_qwVersion;
        aOnSwap();
        if (IsCalledHere()) return;
        m_ended.wait(aLock, [&] { return !IsCalledBefore(qwVersion); });
    }
    void Set(Function aFunction) {
        Set(std::move(aFunction), [] {});
    }

    /// Calls the installed callable, if there is one. The callable must not throw.
    template <class... Arguments>
    void Call(Arguments... aArguments) noexcept {
        Running aCall(*this);
        if (aCall.m_pEntry) aCall.m_pEntry->aFunction(aArguments...);
    }

    /// Locks the slot until one of the other two is called, on the same thread.
    void BeforeFork() { m_mutex.lock(); }
    void AfterForkInParent() { m_mutex.unlock(); }

    /// Removes the calls of threads that the child does not have. What they hold is not freed.
    void AfterForkInChild() {
        Running** pp = &m_pCalls;
        while (*pp) {
            if ((*pp)->m_thread == std::this_thread::get_id())
                pp = &(*pp)->m_pNext;
            else
                *pp = (*pp)->m_pNext;
        }
        new (&m_ended) std::condition_variable;  // destroying it would wait for its waiters
        m_mutex.unlock();
    }

 private:
    struct Entry {
        Function aFunction;
    };

    /// A running call, which is linked into the slot.
    struct Running {
        explicit Running(CCmCallSlot& aSlot) : m_slot(aSlot) {
            std::lock_guard<std::mutex> aLock(m_slot.m_mutex);
            m_pEntry = m_slot.m_pEntry;
            m_qwVersion = m_slot.m_qwVersion;
            m_pNext = m_slot.m_pCalls;
            m_slot.m_pCalls = this;
        }
        ~Running() {
            m_pEntry.reset();  // the last one destroys a replaced entry: before Set may return
            std::lock_guard<std::mutex> aLock(m_slot.m_mutex);
            Running** pp = &m_slot.m_pCalls;
            while (*pp != this) pp = &(*pp)->m_pNext;
            *pp = m_pNext;
            m_slot.m_ended.notify_all();
        }

        CCmCallSlot& m_slot;
        const std::thread::id m_thread = std::this_thread::get_id();
        std::shared_ptr<const Entry> m_pEntry;
        std::uint64_t m_qwVersion = 0;
        Running* m_pNext = nullptr;
    };

    bool IsCalledHere() const {
        for (const Running* p = m_pCalls; p; p = p->m_pNext)
            if (p->m_thread == std::this_thread::get_id()) return true;
        return false;
    }

    bool IsCalledBefore(std::uint64_t qwVersion) const {
        for (const Running* p = m_pCalls; p; p = p->m_pNext)
            if (p->m_qwVersion < qwVersion) return true;
        return false;
    }

    std::mutex m_mutex;
    std::condition_variable m_ended;  // a call has ended

    // Guarded by m_mutex.
    std::shared_ptr<const Entry> m_pEntry;
    std::uint64_t m_qwVersion = 0;  // of m_pEntry
    Running* m_pCalls = nullptr;    // the running calls
};
