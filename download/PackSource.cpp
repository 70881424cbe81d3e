#include "download/PackSource.h"

#include "download/PackFailure.h"
#include "platform/CmResult.h"

CmInt32 CPackSource::Open() {
    if (m_stream.strPath.empty()) return CACHE_OK;
    m_pStream.reset(CmFile::Open(m_stream.strPath, CmFile::Open_Read, CmFile::Path_Local));
    return m_pStream ? CmInt32{CACHE_OK}
                     : ReportSystemError(this, "Open source", m_stream.strPath,
                                         FileAction::OpenForReading);
}

CmInt32 CPackSource::GetSize(std::uint64_t& qwSize) {
    qwSize = m_stream.strBytes.size();
    if (m_stream.dwLength) qwSize = *m_stream.dwLength;
    if (!m_pStream || m_stream.dwLength) return CACHE_OK;
    const std::int64_t nSize = CmFile::Size(m_pStream.get());
    if (nSize < 0)
        return ReportSystemError(this, "Size of source", m_stream.strPath, FileAction::Write);
    qwSize = static_cast<std::uint64_t>(nSize);
    return CACHE_OK;
}

std::size_t CPackSource::Read(unsigned char* lpBuffer, std::size_t nLength) {
    if (m_pStream) return CmFile::Read(m_pStream.get(), lpBuffer, nLength, m_bEnd);
    nLength = m_stream.strBytes.copy(reinterpret_cast<char*>(lpBuffer), nLength, m_nPosition);
    m_nPosition += nLength;
    return nLength;
}
