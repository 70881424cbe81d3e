#pragma once

#include <atomic>

#include "platform/CmExport.h"
#include "platform/CmMutex.h"
#include "platform/CmTypes.h"

/// The base of shared objects: a 32-bit reference count that starts at 0. Any thread may add and
/// release references, and the thread that releases the last one destroys the object. MutexType
/// selects the kind of count; for CCmMutexThread it is atomic.
template <class MutexType>
class CCmReferenceControlT {
 public:
    CCmReferenceControlT() = default;
    /// A copy starts with the count of the original, because copying a counted object copies its
    /// fields. The code that makes the copy has to release these references.
    CCmReferenceControlT(const CCmReferenceControlT& aOther)
        : m_dwReference(aOther.m_dwReference.load(std::memory_order_relaxed)) {}
    CCmReferenceControlT& operator=(const CCmReferenceControlT& aOther) {
        if (this != &aOther)
            m_dwReference.store(aOther.m_dwReference.load(std::memory_order_relaxed),
                                std::memory_order_relaxed);
        return *this;
    }

    /// Pure, because the class is only a base of others.
    virtual ~CCmReferenceControlT() = 0;

    /// Adds a reference and returns the new count.
    virtual CmUint32 AddReference() {
        // Relaxed: the caller has a reference, so the object cannot be destroyed meanwhile.
        return m_dwReference.fetch_add(1, std::memory_order_relaxed) + 1;
    }

    /// Releases a reference and returns the new count. If it is 0, the object has been destroyed.
    virtual CmUint32 ReleaseReference() {
        // Released, so that the destructor runs after each use of the object by any thread.
        const CmUint32 dwLeft = m_dwReference.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (dwLeft == 0) OnReferenceDestory();
        return dwLeft;
    }

    virtual CmUint32 GetReference() { return m_dwReference.load(std::memory_order_acquire); }

 protected:
    /// Called once, by the release that reaches 0. Deletes the object.
    virtual void OnReferenceDestory();

 private:
    std::atomic<CmUint32> m_dwReference{0};
};

template <class MutexType>
CCmReferenceControlT<MutexType>::~CCmReferenceControlT() = default;

/// Not inline, because a compiler that inlines it into a release considers destructors that the
/// object cannot have, and warns about them. Exported, because classes of a host that derive from
/// an exported class need it.
template <>
CACHEFILE_API void CCmReferenceControlT<CCmMutexThread>::OnReferenceDestory();

/// Holds one reference to a counted object, or nothing. The code that creates an object (its count
/// is 0) puts it into a CRefPtr immediately. One CRefPtr is for one thread at a time, like a plain
/// pointer.
template <class T>
class CRefPtr {
 public:
    CRefPtr() = default;
    CRefPtr(T* pObject) : m_pObject(pObject) {  // NOLINT: converts as a plain pointer does
        if (m_pObject) m_pObject->AddReference();
    }
    CRefPtr(const CRefPtr& aOther) : CRefPtr(aOther.m_pObject) {}
    CRefPtr(CRefPtr&& aOther) noexcept : m_pObject(aOther.m_pObject) { aOther.m_pObject = nullptr; }
    ~CRefPtr() {
        if (m_pObject) m_pObject->ReleaseReference();
    }

    /// Adds the new reference before it releases the old one.
    CRefPtr& operator=(T* pObject) {
        if (pObject == m_pObject) return *this;
        if (pObject) pObject->AddReference();
        T* const pOld = m_pObject;
        m_pObject = pObject;
        if (pOld) pOld->ReleaseReference();
        return *this;
    }
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp): tested above
    CRefPtr& operator=(const CRefPtr& aOther) {
        *this = aOther.m_pObject;
        return *this;
    }
    CRefPtr& operator=(CRefPtr&& aOther) noexcept {
        if (this == &aOther) return *this;
        T* const pOld = m_pObject;
        m_pObject = aOther.m_pObject;
        aOther.m_pObject = nullptr;
        if (pOld) pOld->ReleaseReference();
        return *this;
    }

    T* Get() const { return m_pObject; }
    T* operator->() const { return m_pObject; }
    T& operator*() const { return *m_pObject; }
    explicit operator bool() const { return m_pObject != nullptr; }

 private:
    T* m_pObject = nullptr;
};
