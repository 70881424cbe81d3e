#pragma once

#include "platform/CmEvent.h"

/// A chain of events linked through themselves, first in, first out. It owns nothing and has no
/// lock: its user guards it and disposes of the events.
class CCmEventList {
 public:
    bool IsEmpty() const { return m_pFirst == nullptr; }
    void PushBack(ICmEvent* pEvent);
    ICmEvent* PopFront();  // null when empty
    /// Moves all events of aOther after those of this list.
    void TakeAll(CCmEventList& aOther);

 private:
    ICmEvent* m_pFirst = nullptr;
    ICmEvent* m_pLast = nullptr;
};
