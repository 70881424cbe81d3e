#include "fileop/LocalFile.h"

#include <cerrno>
#include <cstdint>
#include <new>

#include "fileop/FilePathBuilder.h"
#include "fileop/SyncThread.h"
#include "fileop/SystemError.h"
#include "platform/CmFile.h"
#include "platform/CmTraceLine.h"

IFileOperation* CFileOperationFactory::CreateLocalFile(int bIsDownloadFile) {
    return new (std::nothrow) CLocalFile(bIsDownloadFile);
}

CLocalFile::CLocalFile(int bIsDownloadFile) : m_bIsDownloadFile(bIsDownloadFile) {
    TraceInfo("CLocalFile::CLocalFile, m_bIsDownloadFile ", m_bIsDownloadFile, " this=", this);
}

CLocalFile::~CLocalFile() { CLocalFile::Close(); }

CmInt32 CLocalFile::Open(const CCmString& strPath, int bWrite) {
    return CLocalFile::OpenAt(strPath, bWrite, {});
}

CmInt32 CLocalFile::OpenAt(const CCmString& strPath, int bWrite, const CmPlace& aPlace) try {
    Close();  // does nothing unless a file is open
    m_bWrite = bWrite;
    m_strFilePath = strPath;
    if (m_bWrite) {
        if (!CLocalFile::CreateLedger()) return CACHE_ERR_OUT_OF_MEMORY;
        const CmInt32 lResult = CFilePathBuilder::BuildPath(m_strFilePath, aPlace);
        if (lResult != CACHE_OK) return lResult;
    }
    const CmInt32 lResult = OpenStream(aPlace);
    if (lResult != CACHE_OK || !m_bWrite || !CSyncThread::IsOn()) return lResult;
    if (!HasSyncRecord(aPlace)) {
        Close();
        return CACHE_ERR_OUT_OF_MEMORY;
    }
    m_pSync->Schedule();  // the name is new
    return CACHE_OK;
} catch (const std::bad_alloc&) {
    return CACHE_ERR_OUT_OF_MEMORY;
}

bool CLocalFile::CreateLedger() {
    if (!m_pLedger) m_pLedger = new (std::nothrow) CFileLedger;
    return bool{m_pLedger};
}

/// Creates the sync record if there is none. Returns false if there is no memory for it.
bool CLocalFile::HasSyncRecord(const CmPlace& aPlace) try {
    if (!m_pSync) m_pSync = new CFileSync(m_hFD, m_pLedger.Get(), m_strFilePath, aPlace, m_written);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

CmInt32 CLocalFile::OpenStream(const CmPlace& aPlace) {
    const CmFile::PathText aText = m_bIsDownloadFile ? CmFile::Path_Utf8 : CmFile::Path_Local;
    if (!CmFile::CanConvert(m_strFilePath, aText)) return CACHE_ERR_FAILED;
    m_hFD = CmFile::Open(m_strFilePath, m_bWrite ? CmFile::Open_Write : CmFile::Open_Read, aText,
                         aPlace);
    if (m_hFD) return CACHE_OK;
    const int nErrno = errno;
    if (m_bWrite)
        TraceError("CLocalFile::Open->Open write File Error=", nErrno, " this=", this);
    else
        TraceError("CLocalFile::Open->Open reading only File Error=", nErrno, " this=", this);
    return SystemErrorToResult(nErrno,
                               m_bWrite ? FileAction::OpenForWriting : FileAction::OpenForReading);
}

CmInt32 CLocalFile::Close() {
    if (!m_hFD) return CACHE_OK;
    if (m_pSync) m_pSync->Close();
    m_pSync = nullptr;
    m_written.Clear();
    std::FILE* const hFD = m_hFD;
    m_hFD = nullptr;
    if (CmFile::Close(hFD) == 0) return CACHE_OK;
    TraceError("CLocalFile::Close->Close File error=", errno, " m_hFD=", hFD, " this=", this);
    return CACHE_ERR_FAILED;
}

/// Moves to the position of a write and returns it in nBegin.
CmInt32 CLocalFile::SeekForWrite(CmUint32 dwOffset, std::int64_t& nBegin) {
    nBegin = dwOffset;
    if (dwOffset == CCacheFileManager::GetMaxDword()) {
        nBegin = CmFile::Size(m_hFD);
        if (nBegin >= 0) return CACHE_OK;
        TraceError("CNFSFile::WriteData->Seek to file end error=", errno, " this=", this);
        return CACHE_ERR_FAILED;
    }
    // A write at an offset is possible only below 2^31.
    int nErrno = EINVAL;
    if (dwOffset <= 0x7FFFFFFF) {
        if (CmFile::Seek(m_hFD, dwOffset) == 0) return CACHE_OK;
        nErrno = errno;
    }
    TraceError("CLocalFile::WriteData->Seek fileoffset error=", nErrno, " dwOffset=", dwOffset,
               " this=", this);
    return CACHE_ERR_FAILED;
}

CmInt32 CLocalFile::WriteData(const CCmString& strData, CmUint32 dwOffset) {
    return Write(strData.data(), strData.size(), dwOffset);
}

CmInt32 CLocalFile::WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) {
    return Write(lpData, nLength, dwOffset);
}

CmInt32 CLocalFile::GiveData(CCmString&& strData, CmUint32 dwOffset) {
    return Write(strData.data(), strData.size(), dwOffset);
}

CmInt32 CLocalFile::Write(const char* lpData, std::size_t nLength, CmUint32 dwOffset) {
    const CmFile::tagBlock aBlock{lpData, nLength};
    return WriteBlocks(&aBlock, 1, dwOffset).lResult;
}

tagAppended CLocalFile::AppendBlocks(const CmFile::tagBlock* pBlocks, std::size_t nCount) {
    return WriteBlocks(pBlocks, nCount, CCacheFileManager::GetMaxDword());
}

/// Checks the state of the file, and moves to the position of a write.
CmInt32 CLocalFile::PrepareWrite(CmUint32 dwOffset, std::int64_t& nBegin) {
    CM_CHECK(m_hFD, "m_hFD", CACHE_ERR_NOT_OPEN);
    if (!m_bWrite) return CACHE_ERR_INVALID_STATE;
    if (CSyncThread::IsOn() && !HasSyncRecord({})) return CACHE_ERR_OUT_OF_MEMORY;
    return SeekForWrite(dwOffset, nBegin);
}

/// Writes blocks to the system. All operations that write call this function. A block of which only
/// a part could be written has failed, and so has the first one if nothing could be written.
tagAppended CLocalFile::WriteBlocks(const CmFile::tagBlock* pBlocks, std::size_t nCount,
                                    CmUint32 dwOffset) {
    std::int64_t nEnd = 0;  // of the blocks that were written
    tagAppended aDone;
    aDone.lResult = PrepareWrite(dwOffset, nEnd);
    if (aDone.lResult != CACHE_OK) return aDone;
    const CmUint32 dwFailures = m_pSync ? m_pSync->BeginWrite() : 0;
    std::size_t nWritten = CmFile::WriteBlocks(m_hFD, pBlocks, nCount);
    const int nErrno = errno;
    for (; aDone.nBlocks < nCount && nWritten >= pBlocks->nLength; ++aDone.nBlocks, ++pBlocks) {
        // In this order, so that a host never sees the bytes as neither pending nor unsynced.
        AddWritten(nEnd, pBlocks->nLength, dwFailures);
        m_pLedger->Written(static_cast<std::uint64_t>(nEnd), pBlocks->nLength, dwOffset);
        nEnd += static_cast<std::int64_t>(pBlocks->nLength);
        nWritten -= pBlocks->nLength;
    }
    if (aDone.nBlocks > 0) CmFile::Flush(m_hFD);
    if (aDone.nBlocks > 0 && nWritten == 0) return aDone;
    TraceError("CLocalFile::WriteData->Write data error=", nErrno, " m_hFD=", m_hFD,
               " this=", this);
    if (dwOffset == CCacheFileManager::GetMaxDword()) UndoAppend(nEnd);
    aDone.lResult = SystemErrorToResult(nErrno, FileAction::Write);
    return aDone;
}

/// The written bytes are not on the disk yet.
void CLocalFile::AddWritten(std::int64_t nBegin, std::size_t nLength, CmUint32 dwFailures) {
    const auto qwBegin = static_cast<std::uint64_t>(nBegin);
    if (m_pSync)
        m_pSync->Written(qwBegin, nLength, dwFailures);
    else
        m_written.Add(qwBegin, nLength);
}

void CLocalFile::UndoAppend(std::int64_t nBegin) {
    m_pLedger->AppendFailed(static_cast<std::uint64_t>(nBegin));
    if (CmFile::CutBack(m_hFD, nBegin) != 0)
        TraceError("CLocalFile::WriteData->A part of the append stays, error=", errno,
                   " m_hFD=", m_hFD, " this=", this);
}

CmInt32 CLocalFile::ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) {
    CM_CHECK(m_hFD, "m_hFD", CACHE_ERR_NOT_OPEN);
    CM_CHECK(lpBuffer, "lpBuffer", CACHE_ERR_INVALID_ARG);
    CM_CHECK(dwLength, "dwLength", CACHE_ERR_INVALID_ARG);
    std::size_t aSize = 0;
    const CmFile::ReadEnd aEnd = CmFile::ReadAt(m_hFD, dwOffset, lpBuffer, dwLength, aSize);
    if (aEnd == CmFile::Read_BadPosition) {
        TraceError("CLocalFile::ReadData->Seek fileoffset error=", errno, " dwOffset=", dwOffset,
                   " this=", this);
        return CACHE_ERR_FAILED;
    }
    if (aEnd == CmFile::Read_Failed) {
        TraceError("CLocalFile::ReadData->Read data error=", errno, " dwLength=", dwLength,
                   " aSize=", static_cast<CmUint32>(aSize), " this=", this);
        return CACHE_ERR_FAILED;
    }
    dwLength = static_cast<CmUint32>(aSize);
    return CACHE_OK;
}

CmInt32 CLocalFile::AsyncReadData(const tagDataInfo& /*aDataInfo*/, unsigned char* lpBuffer,
                                  CmUint32 dwOffset, CmUint32& dwLength) {
    return ReadData(lpBuffer, dwOffset, dwLength);
}

void CLocalFile::Flush() {
    if (m_hFD) CmFile::Flush(m_hFD);
}

CmInt32 CLocalFile::GetSize(std::uint64_t& qwSize) {
    CM_CHECK(m_hFD, "m_hFD", CACHE_ERR_NOT_OPEN);
    const std::int64_t nSize = CmFile::Size(m_hFD);
    if (nSize < 0) {
        TraceError("CLocalFile::GetSize->Get file size error=", errno, " this=", this);
        return CACHE_ERR_FAILED;
    }
    qwSize = static_cast<std::uint64_t>(nSize);
    return CACHE_OK;
}

CmInt32 CLocalFile::Sync(CmUint32 /*dwHandle*/) {
    CM_CHECK(m_hFD, "m_hFD", CACHE_ERR_NOT_OPEN);
    if (!m_bWrite) return CACHE_ERR_INVALID_STATE;
    return HasSyncRecord({}) ? m_pSync->Sync() : CmInt32{CACHE_ERR_OUT_OF_MEMORY};
}

CmInt32 CLocalFile::GetFreeSpace(std::uint64_t& qwBytes) {
    CM_CHECK(m_hFD, "m_hFD", CACHE_ERR_NOT_OPEN);
    return CmFile::FreeSpace(m_hFD, qwBytes) == 0 ? CmInt32{CACHE_OK} : CmInt32{CACHE_ERR_FAILED};
}
