#pragma once

#include "platform/CmEvent.h"

/// A list of events, first in, first out. The events have the link fields. The list does not own
/// the events and has no lock: its user guards it and frees the events.
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
