#pragma once

#include <cstdint>
#include <cstdio>

#include "fileop/FileLedger.h"
#include "fileop/FileOperation.h"
#include "fileop/FileSync.h"

/// A file of the local or a mounted file system: the last link of every chain.
///
/// Owned by the previous link. It has no lock: one operation at a time, on any thread. When a write
/// returns, its bytes are in the operating system. A failure is traced here, where the system is
/// called, and its code is returned. The stream stays open.
///
/// An append that fails is undone: the file is truncated to its previous size. If it is not a
/// regular file, or another handle has appended in the meantime, it is not truncated, which is
/// traced. A process that is killed between the write and the truncation leaves a part of the
/// append. A failed write at an offset may leave a part of its bytes.
///
/// While a sync interval is set, a written file has a sync record, which the sync thread uses.
class CLocalFile final : public IFileOperation {
 public:
    /// If bIsDownloadFile is non-zero, the path that Open receives is UTF-8 on every system.
    explicit CLocalFile(int bIsDownloadFile);
    ~CLocalFile() override;

    CmInt32 Open(const CCmString& strPath, int bWrite) override;
    CmInt32 Close() override;
    CmInt32 WriteData(const CCmString& strData, CmUint32 dwOffset) override;
    CmInt32 ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) override;
    CmInt32 AsyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                          CmUint32& dwLength) override;
    const CCmString& GetFileName() override { return m_strFilePath; }
    void Flush() override;
    CmInt32 OpenAt(const CCmString& strPath, int bWrite, const CmPlace& aPlace) override;
    CmInt32 WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) override;
    CmInt32 GiveData(CCmString&& strData, CmUint32 dwOffset) override;
    CmInt32 GetSize(std::uint64_t& qwSize) override;
    CmInt32 Sync(CmUint32 dwHandle) override;
    CFileLedger* Ledger() override { return m_pLedger.Get(); }
    /// Without this call an Open for writing creates the ledger.
    bool CreateLedger() override;
    CmInt32 GetFreeSpace(std::uint64_t& qwBytes) override;
    tagAppended AppendBlocks(const CmFile::tagBlock* pBlocks, std::size_t nCount) override;

 private:
    CmInt32 OpenStream(const CmPlace& aPlace);
    bool HasSyncRecord(const CmPlace& aPlace);
    CmInt32 Write(const char* lpData, std::size_t nLength, CmUint32 dwOffset);
    CmInt32 PrepareWrite(CmUint32 dwOffset, std::int64_t& nBegin);
    CmInt32 SeekForWrite(CmUint32 dwOffset, std::int64_t& nBegin);
    tagAppended WriteBlocks(const CmFile::tagBlock* pBlocks, std::size_t nCount, CmUint32 dwOffset);
    void AddWritten(std::int64_t nBegin, std::size_t nLength, CmUint32 dwFailures);
    void UndoAppend(std::int64_t nBegin);

    CCmString m_strFilePath;
    int m_bWrite = 1;
    std::FILE* m_hFD = nullptr;
    const int m_bIsDownloadFile;
    CRefPtr<CFileLedger> m_pLedger;  // null for a file that is opened for reading
    CRefPtr<CFileSync> m_pSync;      // null if the file need not be synced
    CFileRanges m_written{1};  // without a sync record: the bytes that a failed sync would lose
};
