#include "fileop/NameSync.h"

#include <cerrno>
#include <new>

#include "platform/CmTraceLine.h"

CNameSync::CNameSync(const CCmString& strPath, const CmPlace& aPlace, int nFile)
    : m_strPath(strPath), m_place(aPlace) {
    if (const int nErrno = OpenDirectories(nFile))
        TraceError("CNameSync::CNameSync->Open directory error=", nErrno, " this=", this);
}

/// Returns 0 or an errno.
int CNameSync::OpenDirectories(int nFile) try {
    m_vecTickets.clear();
    const int nErrno = CDirectorySync::TakeTickets(m_strPath, m_place, nFile, m_vecTickets);
    if (nErrno != 0) return nErrno;
    m_strPath = CCmString();
    m_place = CmPlace();
    return 0;
} catch (const std::bad_alloc&) {
    return ENOMEM;
}

int CNameSync::Sync(int nFile) {
    if (!m_strPath.empty())
        if (const int nErrno = OpenDirectories(nFile)) return nErrno;
    for (const CDirectorySync::tagTicket& aTicket : m_vecTickets)
        if (const int nErrno = aTicket.pDirectory->Sync(aTicket.qwNumber)) return nErrno;
    m_vecTickets.clear();
    return 0;
}
