#pragma once

#include <atomic>

#include "fileop/GatherList.h"

/// The age of the bytes that one file has gathered.
///
/// A member of the link that gathers (CBufferDecorate). It is used on the thread of the file,
/// before and after each operation that touches the buffer. A synchronous handler may move to
/// another thread between two calls, so every operation first removes the file from the list of the
/// previous thread. While no age is set, an append costs one relaxed load. Nothing here fails: if
/// there is no memory for a list, the bytes have no age until the next append tries again.
class CGatherAge {
 public:
    /// aFile is the link that has this as a member.
    explicit CGatherAge(IFileOperation& aFile) : m_file(aFile) {}
    ~CGatherAge();
    CGatherAge(const CGatherAge&) = delete;
    CGatherAge& operator=(const CGatherAge&) = delete;

    static bool IsOn() { return s_dwAge.load(std::memory_order_relaxed) != 0; }

    /// Whether no age is set and the file is in no list, so that nothing needs to be called.
    bool IsUnused() const { return !m_pList && !IsOn(); }

    /// Called before the buffer is used. If the file is in the list of another thread, it is
    /// removed from it, so that the other thread does not flush the file.
    void BeforeUse() {
        if (m_pList && !m_pList->IsMine()) RemoveFromList();
    }

    /// Called when the buffer has become empty.
    void OnEmptied() {
        if (m_bListed) RemoveFromList();
        m_firstByte = {};
    }

    /// Called after a write; aHasGathered returns whether the buffer holds bytes.
    template <class HasGathered>
    void AfterWrite(HasGathered aHasGathered) {
        if (!m_bListed) {
            if (IsOn()) AfterUnlisted(aHasGathered());
        } else if (m_pList->MayHaveDueFile()) {
            m_pList->FlushIfDue();
        }
    }

    /// See CCacheFileManager.
    static void SetAge(CmUint32 dwMilliseconds);
    static void FlushAged();

 private:
    friend class CGatherList;
    friend class CGatherLists;

    void AfterUnlisted(bool bHasGathered);
    void AddToList();
    void RemoveFromList();
    bool MayFlush() const;

    static std::atomic<CmUint32> s_dwAge;  // in milliseconds, 0: none is set

    IFileOperation& m_file;
    CGatherList* m_pList = nullptr;  // the list that the file belongs to
    bool m_bListed = false;          // it is linked there, because it has gathered bytes

    // Guarded by the mutex of the lists.
    CGatherList::Clock::time_point m_firstByte;  // of the oldest byte; zero if there is none
    bool m_bWithoutWorker = false;               // when it was linked
    CGatherAge* m_pEarlier = nullptr;
    CGatherAge* m_pLater = nullptr;
};

/// Its destructor flushes the files of the calling thread that are due. An operation of a handler
/// declares it first, so that the flush happens after the operation and does not affect it.
class CAgedFlush {
 public:
    CAgedFlush() = default;
    ~CAgedFlush() {
        if (CGatherAge::IsOn()) CGatherAge::FlushAged();
    }
    CAgedFlush(const CAgedFlush&) = delete;
    CAgedFlush& operator=(const CAgedFlush&) = delete;
};
