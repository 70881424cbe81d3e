#include "download/PartialFile.h"

#include <algorithm>
#include <cerrno>
#include <string>

#include "download/PackFailure.h"
#include "platform/CmResult.h"

namespace {

constexpr std::size_t c_nWriteSize = 65536;  // per write call; an index entry has only 32 bytes

// Other processes may be using some of the names. If this many exist, they are not being removed,
// and Create fails.
constexpr int c_nMaxNames = 1000;

}  // namespace

CPartialFile::CPartialFile(const CCmString& strPath) : m_strPath(strPath) {
    m_vecGathered.reserve(c_nWriteSize);
}

CPartialFile::~CPartialFile() {
    if (!m_bRemove) return;
    m_pStream.reset();  // some systems do not remove open files
    CmFile::RemoveUtf8File(m_strPartial);
}

CmInt32 CPartialFile::Create() {
    m_strPartial = m_strPath + ".partial";
    for (int nNumber = 2; !TryCreate(); ++nNumber) {
        if (errno != EEXIST || nNumber > c_nMaxNames)
            return ReportSystemError(this, "Open file", m_strPartial, FileAction::OpenForWriting);
        m_strPartial = m_strPath + ".partial" + std::to_string(nNumber);
    }
    m_bRemove = true;
    return CACHE_OK;
}

bool CPartialFile::TryCreate() {
    m_pStream.reset(CmFile::Open(m_strPartial, CmFile::Open_New, CmFile::Path_Utf8));
    return m_pStream != nullptr;
}

CmInt32 CPartialFile::Append(const unsigned char* lpData, std::size_t nLength) {
    while (nLength > 0) {
        const std::size_t nPart = std::min(nLength, c_nWriteSize - m_vecGathered.size());
        m_vecGathered.insert(m_vecGathered.end(), lpData, lpData + nPart);
        lpData += nPart;
        nLength -= nPart;
        if (m_vecGathered.size() < c_nWriteSize) break;
        const CmInt32 lResult = WriteGathered();
        if (lResult != CACHE_OK) return lResult;
    }
    return CACHE_OK;
}

CmInt32 CPartialFile::WriteGathered() {
    const std::size_t nLength = m_vecGathered.size();
    const bool bGood = CmFile::Write(m_pStream.get(), m_vecGathered.data(), nLength) == nLength;
    m_vecGathered.clear();
    return bGood ? CmInt32{CACHE_OK}
                 : ReportSystemError(this, "Write data", m_strPartial, FileAction::Write);
}

CmInt32 CPartialFile::Sync() {
    const CmInt32 lResult = WriteGathered();
    if (lResult != CACHE_OK) return lResult;
    if (CmFile::Sync(m_pStream.get()) != 0)
        return ReportSystemError(this, "Close file", m_strPartial, FileAction::Write);
    return CACHE_OK;
}

CmInt32 CPartialFile::Rename() {
    if (CmFile::Close(m_pStream.release()) != 0)
        return ReportSystemError(this, "Close file", m_strPartial, FileAction::Write);
    if (CmFile::RenameOver(m_strPartial, m_strPath) != 0)
        return ReportSystemError(this, "Rename file", m_strPath, FileAction::OpenForWriting);
    m_bRemove = false;
    if (CmFile::SyncDirectoryOf(m_strPath) != 0)
        return ReportSystemError(this, "Sync directory", m_strPath, FileAction::Write);
    return CACHE_OK;
}
