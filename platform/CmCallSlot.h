#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

/// Holds one callable that a host installs and that any thread calls.
///
/// The callable runs without a lock, on several threads at once if they call at once. Replacing it
/// waits for the calls of the old one that run on other threads, so a host may destroy what the
/// callable uses as soon as Set has returned. From inside a call Set doesn't wait.
template <class Function>
class CCmCallSlot {
 public:
    /// Installs aFunction, or nothing if it is empty. Throws std::bad_alloc with the old one kept.
    void Set(Function aFunction) {
        std::shared_ptr<Entry> pEntry;
        if (aFunction) pEntry = std::make_shared<Entry>(std::move(aFunction));
        std::unique_lock<std::mutex> aLock(m_mutex);
        m_pEntry.swap(pEntry);
        if (!pEntry || pEntry->IsCalledHere()) return;
        m_idle.wait(aLock, [&] { return pEntry->m_pCalls == nullptr; });
    }

    /// Calls what is installed, if anything is. It must not throw.
    template <class... Arguments>
    void Call(Arguments... aArguments) noexcept {
        Running aCall(*this);
        if (aCall.m_pEntry) aCall.m_pEntry->m_function(aArguments...);
    }

 private:
    struct Running;

    struct Entry {
        explicit Entry(Function aFunction) : m_function(std::move(aFunction)) {}

        bool IsCalledHere() const {
            for (const Running* p = m_pCalls; p; p = p->m_pNext)
                if (p->m_thread == std::this_thread::get_id()) return true;
            return false;
        }

        const Function m_function;
        Running* m_pCalls = nullptr;  // the calls under way; guarded by the slot's mutex
    };

    /// One call under way, linked into its entry while it runs.
    struct Running {
        explicit Running(CCmCallSlot& aSlot) : m_slot(aSlot) {
            std::lock_guard<std::mutex> aLock(m_slot.m_mutex);
            m_pEntry = m_slot.m_pEntry;
            if (!m_pEntry) return;
            m_pNext = m_pEntry->m_pCalls;
            m_pEntry->m_pCalls = this;
        }
        ~Running() {
            if (!m_pEntry) return;
            std::shared_ptr<Entry> pReplaced;  // ends outside the lock
            std::lock_guard<std::mutex> aLock(m_slot.m_mutex);
            Running** pp = &m_pEntry->m_pCalls;
            while (*pp != this) pp = &(*pp)->m_pNext;
            *pp = m_pNext;
            if (!m_pEntry->m_pCalls) m_slot.m_idle.notify_all();
            // A Set that waits holds the entry too, and is the one to destroy it.
            if (m_pEntry.use_count() == 1)
                pReplaced.swap(m_pEntry);
            else
                m_pEntry.reset();
        }

        CCmCallSlot& m_slot;
        const std::thread::id m_thread = std::this_thread::get_id();
        std::shared_ptr<Entry> m_pEntry;
        Running* m_pNext = nullptr;
    };

    std::mutex m_mutex;
    std::condition_variable m_idle;  // a call has ended
    std::shared_ptr<Entry> m_pEntry;
};
