#pragma once

#include "fileop/GatherAge.h"

/// Gathers appended bytes into blocks, so that the links below see one large append instead of
/// many small ones.
///
/// Owned by a handler, and used only on its thread, without a lock. Flushes by age run on that
/// thread too (CGatherAge). Appended bytes reach the file in the order of the calls and before any
/// later write at an offset. Between calls fewer than m_dwBufferSize bytes are gathered, and the
/// buffer uses no more memory than twice that. If gathered bytes cannot be passed on, they are
/// dropped and counted (CCacheFileManager::GetLostBytes), and the next link traces the failure.
/// Nothing is retried.
class CBufferDecorate final : public IFileOperation {
 public:
    /// pFile is the next link; if it is null, every operation returns CACHE_ERR_NOT_OPEN.
    CBufferDecorate(IFileOperation* pFile, CmUint32 dwBufferSize);
    ~CBufferDecorate() override;

    CmInt32 Open(const CCmString& strPath, int bWrite) override;

    /// Passes the gathered bytes on and closes the file. The result is only that of the close.
    CmInt32 Close() override;

    /// At 0xFFFFFFFF the bytes are gathered. When the threshold is reached, all of them are passed
    /// on in one append, and this call returns its result. At another offset the gathered bytes are
    /// passed on first (a failure is traced and counted, not returned), then strData.
    CmInt32 WriteData(const CCmString& strData, CmUint32 dwOffset) override;

    /// Reads of both kinds are passed on directly. They do not return gathered bytes.
    CmInt32 ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) override;
    CmInt32 AsyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                          CmUint32& dwLength) override;

    const CCmString& GetFileName() override;
    void Flush() override;
    CmInt32 WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) override;
    CmInt32 GiveData(CCmString&& strData, CmUint32 dwOffset) override;
    std::uint64_t BytesToQueue(std::uint64_t qwLength, CmUint32 dwOffset) override;
    /// If the gathered bytes cannot be passed on, returns that failure, otherwise the result of the
    /// sync.
    CmInt32 Sync(CmUint32 dwHandle) override;
    CFileLedger* Ledger() override { return m_pFile ? m_pFile->Ledger() : nullptr; }
    CmInt32 GetFreeSpace(std::uint64_t& qwBytes) override;
    void CountPendingIn(CPendingCount* pCount) override {
        if (m_pFile) m_pFile->CountPendingIn(pCount);
    }
    tagFileThreads GetThreads() override {
        return m_pFile ? m_pFile->GetThreads() : tagFileThreads();
    }

 private:
    CmInt32 Write(const char* lpData, std::size_t nLength, CmUint32 dwOffset);
    CmInt32 WritePositioned(const char* lpData, std::size_t nLength, CmUint32 dwOffset);
    CmInt32 Append(const char* lpData, std::size_t nLength);
    void Enlarge(std::size_t nLength);
    CmInt32 PassOn(std::size_t nAccepted);
    std::size_t MaxKeptCapacity() const { return std::size_t{m_dwBufferSize} * 2; }

    const CRefPtr<IFileOperation> m_pFile;
    const CmUint32 m_dwBufferSize;
    CCmString m_strBuffer;
    CGatherAge m_age{*this};
};
