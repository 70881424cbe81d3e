#pragma once

#include <atomic>

#include "fileop/GatherList.h"

/// The age of what one file has gathered.
///
/// A member of the link that gathers (CBufferDecorate), used on the thread of the file before and
/// after each operation that touches the buffer. A synchronous handler may move to another thread
/// between two calls: every operation begins by taking the file away from the thread before. While
/// no age is set, an append costs one relaxed load. Nothing here fails; without memory for a list
/// the bytes stay gathered as without an age until the next append.
class CGatherAge {
 public:
    /// aFile is the link that has this as a member.
    explicit CGatherAge(IFileOperation& aFile) : m_file(aFile) {}
    ~CGatherAge();
    CGatherAge(const CGatherAge&) = delete;
    CGatherAge& operator=(const CGatherAge&) = delete;

    static bool IsOn() { return s_dwAge.load(std::memory_order_relaxed) != 0; }

    /// Before the buffer is used: from now on no other thread flushes the file.
    void Claim() {
        if (m_pList && !m_pList->IsMine()) Withdraw();
    }

    /// The buffer has become empty.
    void OnEmptied() {
        if (m_bListed) Withdraw();
        m_firstByte = {};
    }

    /// After a write; aHasGathered returns whether the buffer holds bytes.
    template <class HasGathered>
    void AfterWrite(HasGathered aHasGathered) {
        if (!m_bListed) {
            if (IsOn()) AfterUnlisted(aHasGathered());
        } else if (m_pList->MustLook()) {
            m_pList->Look();
        }
    }

    /// See CCacheFileManager.
    static void SetAge(CmUint32 dwMilliseconds);
    static void FlushAged();

 private:
    friend class CGatherList;
    friend class CGatherLists;

    void AfterUnlisted(bool bHasGathered);
    void Enter();
    void Withdraw();
    bool MayFlush() const;

    static std::atomic<CmUint32> s_dwAge;  // in milliseconds, 0: none is set

    IFileOperation& m_file;
    CGatherList* m_pList = nullptr;  // the list to which the file belongs
    bool m_bListed = false;          // whether it is linked there, because it has gathered bytes

    // Guarded by the mutex of the lists.
    CGatherList::Clock::time_point m_firstByte;  // as long as there are bytes
    CGatherAge* m_pEarlier = nullptr;
    CGatherAge* m_pLater = nullptr;
};

/// Flushes at its end what is due of the calling thread. Declared first in an operation of a
/// handler, so that the flush changes nothing about the operation.
class CAgedFlush {
 public:
    CAgedFlush() = default;
    ~CAgedFlush() {
        if (CGatherAge::IsOn()) CGatherAge::FlushAged();
    }
    CAgedFlush(const CAgedFlush&) = delete;
    CAgedFlush& operator=(const CAgedFlush&) = delete;
};
