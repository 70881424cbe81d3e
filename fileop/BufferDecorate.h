#pragma once

#include "fileop/FileOperation.h"

/// Gathers appended bytes into blocks, so that the links below see one large append instead of
/// many small ones.
///
/// Owned by a handler, and used on its thread only; no lock. Appended bytes reach the file in the
/// order in which they came and before any positioned write that follows them. Between calls fewer
/// than m_dwBufferSize bytes are gathered, and the buffer uses no more memory than twice that.
/// Gathered bytes whose passing on fails are dropped, traced by the link below and counted
/// (CCacheFileManager::GetLostBytes); nothing is retried.
class CBufferDecorate final : public IFileOperation {
 public:
    /// pFile is the link below; without one every operation returns CACHE_ERR_NOT_OPEN.
    CBufferDecorate(IFileOperation* pFile, CmUint32 dwBufferSize);
    ~CBufferDecorate() override;

    CmInt32 Open(const CCmString& strPath, int bWrite) override;

    /// Passes gathered bytes on, then closes; the result is that of the closing alone.
    CmInt32 Close() override;

    /// At 0xFFFFFFFF the bytes are gathered, and when the threshold is reached all of them passed
    /// on in one append, whose result this call returns. At another offset what is gathered goes
    /// first (its failure is traced and counted, not returned), then strData.
    CmInt32 WriteData(const CCmString& strData, CmUint32 dwOffset) override;

    /// Reads of either kind go straight down and don't see what is still gathered.
    CmInt32 ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) override;
    CmInt32 AsyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                          CmUint32& dwLength) override;

    const CCmString& GetFileName() override;
    void Flush() override;
    CmInt32 WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) override;
    std::uint64_t BytesToQueue(std::uint64_t qwLength, CmUint32 dwOffset) override;

 private:
    CmInt32 Append(const char* lpData, std::size_t nLength);
    void Enlarge(std::size_t nLength);
    CmInt32 PassOn(std::size_t nAccepted);
    std::size_t MostBetweenCalls() const { return std::size_t{m_dwBufferSize} * 2; }

    const CRefPtr<IFileOperation> m_pFile;
    const CmUint32 m_dwBufferSize;
    CCmString m_strBuffer;
};
