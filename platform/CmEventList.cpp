#include "platform/CmEventList.h"

void CCmEventList::PushBack(ICmEvent* pEvent) {
    pEvent->m_pNext = nullptr;
    if (m_pLast)
        m_pLast->m_pNext = pEvent;
    else
        m_pFirst = pEvent;
    m_pLast = pEvent;
}

ICmEvent* CCmEventList::PopFront() {
    ICmEvent* const pEvent = m_pFirst;
    if (!pEvent) return nullptr;
    m_pFirst = pEvent->m_pNext;
    if (!m_pFirst) m_pLast = nullptr;
    return pEvent;  // which still refers to the next one (ICmEvent::GetFollowing)
}

void CCmEventList::TakeAll(CCmEventList& aOther) {
    if (aOther.IsEmpty()) return;
    if (m_pLast)
        m_pLast->m_pNext = aOther.m_pFirst;
    else
        m_pFirst = aOther.m_pFirst;
    m_pLast = aOther.m_pLast;
    aOther.m_pFirst = aOther.m_pLast = nullptr;
}
