#include "download/ContainerOutput.h"

#include <algorithm>
#include <cerrno>

#include "download/PackFailure.h"
#include "platform/CmResult.h"
#include "platform/CmTraceLine.h"

namespace {

constexpr std::uint64_t c_qwMaxSize = 0xFFFFFFFF;
constexpr std::size_t c_nBlockSize = 65536;

// Reasons of failures, as GetLastFailure reports them.
constexpr char c_szGrew[] = "it has grown while it was packed";
constexpr char c_szShrank[] = "it has become shorter while it was packed";
constexpr char c_szUnreadable[] = "it could not be read";
constexpr char c_szUnwritable[] = "it could not be written";
constexpr char c_szTooLarge[] = "with it the container would be larger than 4 GiB - 1 bytes";
constexpr char c_szCancelled[] = "packing was cancelled";

void Put16(unsigned char* lpTo, std::uint16_t wValue) {
    lpTo[0] = static_cast<unsigned char>(wValue);
    lpTo[1] = static_cast<unsigned char>(wValue >> 8);
}

void Put32(unsigned char* lpTo, CmUint32 dwValue) {
    Put16(lpTo, static_cast<std::uint16_t>(dwValue));
    Put16(lpTo + 2, static_cast<std::uint16_t>(dwValue >> 16));
}

}  // namespace

CContainerOutput::CContainerOutput(const CCmString& strPath, const tagPackPlan& aPlan,
                                   const CContainerWriter::Progress& aProgress,
                                   CContainerWriter::tagFailure& aFailure)
    : m_plan(aPlan), m_progress(aProgress), m_failure(aFailure), m_file(strPath) {}

/// The host can cancel before and after the sync, which may take long; the rename comes last.
CmInt32 CContainerOutput::Run() {
    CmInt32 lResult = LayOut();
    if (lResult == CACHE_OK) lResult = Written(m_file.Create());
    if (lResult == CACHE_OK) lResult = WriteParts();
    if (lResult == CACHE_OK) lResult = ReportProgress();
    if (lResult == CACHE_OK) lResult = Written(m_file.Sync());
    if (lResult == CACHE_OK) lResult = ReportProgress();
    if (lResult == CACHE_OK) lResult = Written(m_file.Rename());
    return lResult;
}

CmInt32 CContainerOutput::Written(CmInt32 lResult) {
    if (lResult == CACHE_OK) return lResult;
    return KeepFailure(m_failure, m_file.GetPath(), c_szUnwritable, errno, lResult);
}

/// Gives every stream its place after the index: those with bytes in order and without gaps, the
/// empty ones at the end.
CmInt32 CContainerOutput::LayOut() {
    const std::uint64_t qwIndexEnd =
        c_dwFileHeaderSize + std::uint64_t{c_dwEntrySize} * m_plan.aStreams.Size();
    std::uint64_t qwEnd = qwIndexEnd;
    m_vecPlaces.reserve(m_plan.aStreams.Size());
    for (const tagPackStream& aStream : m_plan.aStreams) {
        CmInt32 lResult = ReportProgress();
        if (lResult == CACHE_OK) lResult = AddPlace(aStream, qwEnd);
        if (lResult != CACHE_OK) return lResult;
    }
    m_dwFileSize = static_cast<CmUint32>(qwEnd);
    m_qwTotal = qwEnd - qwIndexEnd;
    for (tagPlace& aPlace : m_vecPlaces)
        if (aPlace.dwSize == 0) aPlace.dwOffset = m_dwFileSize;
    return CACHE_OK;
}

CmInt32 CContainerOutput::AddPlace(const tagPackStream& aStream, std::uint64_t& qwEnd) {
    CPackSource aSource(aStream);
    std::uint64_t qwSize = 0;
    CmInt32 lResult = aSource.Open();
    if (lResult == CACHE_OK) lResult = aSource.GetSize(qwSize);
    if (lResult != CACHE_OK) return KeepSourceFailure(aStream, c_szUnreadable, errno, lResult);
    const bool bShortConf = aStream.IsConf() && qwSize < c_dwEntryFileHeaderSize;
    if (bShortConf || qwSize > c_qwMaxSize - qwEnd) {
        TraceError("CContainerWriter::Write->",
                   (bShortConf ? "Conf stream without header" : "More than 4 GiB"),
                   " file=", aStream.strPath, " this=", this);
        return KeepSourceFailure(aStream, bShortConf ? c_szShortConf : c_szTooLarge, 0,
                                 CACHE_ERR_INVALID_ARG);
    }
    m_vecPlaces.push_back({static_cast<CmUint32>(qwEnd), static_cast<CmUint32>(qwSize)});
    qwEnd += qwSize;
    return CACHE_OK;
}

/// All entries come before all data.
CmInt32 CContainerOutput::WriteParts() {
    CmInt32 lResult = WriteFileHeader();
    for (std::size_t i = 0; lResult == CACHE_OK && i < m_vecPlaces.size(); ++i)
        lResult = WriteEntry(i);
    for (std::size_t i = 0; lResult == CACHE_OK && i < m_vecPlaces.size(); ++i) {
        lResult = ReportProgress();
        if (lResult == CACHE_OK) lResult = WriteData(i);
    }
    return lResult;
}

CmInt32 CContainerOutput::WriteFileHeader() {
    unsigned char aBytes[c_dwFileHeaderSize] = {};
    Put32(aBytes + 8, m_dwFileSize);
    Put32(aBytes + 16, static_cast<CmUint32>(m_plan.aStreams.Size()));
    Put32(aBytes + 20, m_plan.dwIndexType);
    return Written(m_file.Append(aBytes, sizeof aBytes));
}

CmInt32 CContainerOutput::WriteEntry(std::size_t nIndex) {
    const tagMRFD& aEntry = m_plan.aStreams[nIndex].aEntry;
    const bool bNext = m_plan.dwIndexType == Index_Chained && nIndex + 1 < m_vecPlaces.size();
    const std::size_t nNext = c_dwFileHeaderSize + c_dwEntrySize * (nIndex + 1);
    unsigned char aBytes[c_dwEntrySize] = {};
    Put16(aBytes, aEntry.wTag);
    Put32(aBytes + 4, aEntry.dwEntryID);
    Put32(aBytes + 8, aEntry.dwExtraInfo);
    Put32(aBytes + 16, m_vecPlaces[nIndex].dwOffset);
    Put32(aBytes + 20, m_vecPlaces[nIndex].dwSize);
    Put32(aBytes + 24, bNext ? static_cast<CmUint32>(nNext) : 0);
    return Written(m_file.Append(aBytes, sizeof aBytes));
}

/// The source is opened a second time. It must still have the size that was laid out, unless its
/// length was given.
CmInt32 CContainerOutput::WriteData(std::size_t nIndex) {
    const tagPackStream& aStream = m_plan.aStreams[nIndex];
    CPackSource aSource(aStream);
    CmInt32 lResult = aSource.Open();
    if (lResult != CACHE_OK) return KeepSourceFailure(aStream, c_szUnreadable, errno, lResult);
    lResult = CopyBytes(aSource, nIndex);
    unsigned char byNext = 0;
    if (lResult == CACHE_OK && !aStream.dwLength && aSource.Read(&byNext, 1) != 0)
        return KeepSourceFailure(
            aStream, c_szGrew, 0,
            ReportSystemError(this, "Source has grown", aStream.strPath, FileAction::Write));
    return lResult;
}

CmInt32 CContainerOutput::CopyBytes(CPackSource& aSource, std::size_t nIndex) {
    const tagPackStream& aStream = m_plan.aStreams[nIndex];
    const CmUint32 dwSize = m_vecPlaces[nIndex].dwSize;
    m_vecBlock.resize(std::max(m_vecBlock.size(), std::min<std::size_t>(dwSize, c_nBlockSize)));
    for (CmUint32 dwLeft = dwSize; dwLeft > 0;) {
        const std::size_t nPart = std::min<std::size_t>(dwLeft, c_nBlockSize);
        if (aSource.Read(m_vecBlock.data(), nPart) != nPart)
            return ReportShortRead(aSource, aStream);
        const bool bFirst = dwLeft == dwSize;
        if (bFirst && m_plan.aHeader && aStream.IsConf()) {
            Put32(m_vecBlock.data() + c_dwFileVersionOffset, m_plan.aHeader->dwFileVersion);
            Put32(m_vecBlock.data() + c_dwCBTimeStampOffset, m_plan.aHeader->dwCBTimeStamp);
        }
        CmInt32 lResult = Written(m_file.Append(m_vecBlock.data(), nPart));
        if (lResult != CACHE_OK) return lResult;
        m_qwDone += nPart;
        dwLeft -= static_cast<CmUint32>(nPart);
        lResult = ReportProgress();
        if (lResult != CACHE_OK) return lResult;
    }
    return CACHE_OK;
}

CmInt32 CContainerOutput::ReportShortRead(const CPackSource& aSource,
                                          const tagPackStream& aStream) {
    const CmInt32 lResult =
        ReportSystemError(this, "Read source", aStream.strPath, FileAction::Write);
    return aSource.IsAtEnd() ? KeepSourceFailure(aStream, c_szShrank, 0, lResult)
                             : KeepSourceFailure(aStream, c_szUnreadable, errno, lResult);
}

CmInt32 CContainerOutput::ReportProgress() {
    if (!m_progress || m_progress(m_qwDone, m_qwTotal)) return CACHE_OK;
    TraceInfo("CContainerWriter::Write->Cancelled file=", m_file.GetPath(), " this=", this);
    return KeepFailure(m_failure, m_file.GetPath(), c_szCancelled, 0, CACHE_ERR_INVALID_STATE);
}

CmInt32 CContainerOutput::KeepSourceFailure(const tagPackStream& aStream, const char* lpReason,
                                            int nErrno, CmInt32 lResult) {
    return KeepFailure(m_failure, aStream.strPath, lpReason, nErrno, lResult);
}
