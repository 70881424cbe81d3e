#pragma once

#include "core/CacheFileManager.h"
#include "core/DataInfo.h"
#include "platform/CmPlace.h"
#include "platform/CmReference.h"
#include "platform/CmResult.h"

class ACmThread;
class CFileLedger;
class CPendingCount;
class ICmEvent;
class IFileOpStatus;

namespace CmFile {
struct tagBlock;
}

/// The threads of an asynchronous file: the one that runs its operations, and the one that receives
/// its results. Both are null for a synchronous file. They are valid while the link exists that
/// returned them.
struct tagFileThreads {
    ACmThread* pWorker = nullptr;
    ACmThread* pCaller = nullptr;
};

/// What AppendBlocks has done: the number of blocks that were written, and the code of the block
/// after them, or 0 if that block was not tried.
struct tagAppended {
    std::size_t nBlocks = 0;
    CmInt32 lResult = CACHE_OK;
};

/// A link of a chain of objects that together operate on one file.
///
/// It is created with a reference count of 0 and is put into a CRefPtr immediately. The last
/// release closes the file. Open is called first and only once; Close may be repeated. The layer
/// above ensures that at most one operation of a file runs at a time. Results are codes of
/// CmResult.h. No operation throws.
class IFileOperation : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// Opens the file. If bWrite is non-zero, opens it for reading and writing: creates it, with
    /// its missing directories, or empties an existing one. Otherwise opens an existing file for
    /// reading.
    virtual CmInt32 Open(const CCmString& strPath, int bWrite) = 0;

    virtual CmInt32 Close() = 0;

    /// Writes strData at dwOffset, or at the end of the file if dwOffset is 0xFFFFFFFF.
    virtual CmInt32 WriteData(const CCmString& strData, CmUint32 dwOffset) = 0;

    /// Reads up to dwLength bytes at dwOffset into lpBuffer and sets dwLength to the number of
    /// bytes read. It is smaller only at the end of the file. On failure dwLength is unchanged.
    virtual CmInt32 ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) = 0;

    /// A read that may complete later. A local file reads during the call and sets dwLength. A
    /// proxy queues the read and does not change dwLength. If it returns 0, it owns lpBuffer, which
    /// comes from array new, until it passes lpBuffer and aDataInfo to OnDataReady of the receiver.
    virtual CmInt32 AsyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer,
                                  CmUint32 dwOffset, CmUint32& dwLength) = 0;

    /// The path of the last Open, whether it succeeded or not. Valid while the object exists.
    virtual const CCmString& GetFileName() = 0;

    /// Passes gathered bytes on to the file and flushes its stream. Failures are not returned.
    virtual void Flush() = 0;

    // The operations above keep their order; new ones are added below.

    /// As Open, but a relative path is relative to aPlace. The default ignores aPlace. A link that
    /// opens the file later stores the current directory in its Open and passes it on.
    virtual CmInt32 OpenAt(const CCmString& strPath, int bWrite, const CmPlace& aPlace);

    /// WriteData of nLength bytes that the caller owns. A link that needs them after the call
    /// copies them.
    virtual CmInt32 WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) = 0;

    /// WriteData of a string that the caller no longer needs. The link may take its memory instead
    /// of copying it. Afterwards the contents of strData are unspecified.
    virtual CmInt32 GiveData(CCmString&& strData, CmUint32 dwOffset) = 0;

    /// Returns how many bytes a WriteData of qwLength bytes at dwOffset would queue for the worker
    /// thread: 0 if it would only gather them or would write them during the call. A link that
    /// passes writes on asks the next link.
    virtual std::uint64_t BytesToQueue(std::uint64_t /*qwLength*/, CmUint32 /*dwOffset*/) {
        return 0;
    }

    /// The threads of the file, which never change. A link that passes operations on asks the next
    /// link.
    virtual tagFileThreads GetThreads() { return {}; }

    /// From now on the bytes that the file queues for the worker thread count in pCount too. The
    /// link holds a reference to pCount. A link that passes writes on calls the next link. A link
    /// without a worker does nothing.
    virtual void CountPendingIn(CPendingCount* /*pCount*/) {}

    /// Sets qwSize to the size of the open file in bytes. On failure qwSize is unchanged; a link
    /// without a file returns CACHE_ERR_FAILED. Called on the thread that reads the file.
    virtual CmInt32 GetSize(std::uint64_t& /*qwSize*/) { return CACHE_ERR_FAILED; }

    /// Runs pEvent on the thread that reads the file, after everything that was queued there
    /// before, and waits for it. The link owns the event and frees it. Returns the event's result,
    /// or CACHE_ERR_INVALID_STATE if that thread has ended. A local file runs the event in the
    /// call.
    virtual CmInt32 SendToReader(ICmEvent* pEvent);

    /// Passes gathered bytes on and syncs the file to the disk. A link that syncs later returns 0
    /// if the sync is queued. Its result is then reported for dwHandle; if dwHandle is 0, only a
    /// failure is reported, as that of a write.
    virtual CmInt32 Sync(CmUint32 /*dwHandle*/) { return CACHE_ERR_FAILED; }

    /// The ledger that counts the file's lost, pending and unsynced bytes; null for a file that is
    /// opened for reading. Any thread may use it. Valid while the link exists.
    virtual CFileLedger* Ledger() { return nullptr; }

    /// Creates the ledger of a file that will be opened for writing. Called before Open, and before
    /// another thread may call Ledger. Returns false if there is no memory, or if the link has no
    /// ledger.
    virtual bool CreateLedger() { return false; }

    /// Sets qwBytes to the free space of the file's file system. Thread and failures as for
    /// GetSize.
    virtual CmInt32 GetFreeSpace(std::uint64_t& /*qwBytes*/) { return CACHE_ERR_FAILED; }

    /// Appends as many of the blocks, from the first on, as one call of the system writes. For each
    /// block that was tried, the effects are those of WriteBytes. nCount is at most
    /// CmFile::c_nMaxBlocks, and no block is empty. A link that cannot do this tries no block.
    virtual tagAppended AppendBlocks(const CmFile::tagBlock* /*pBlocks*/, std::size_t /*nCount*/) {
        return {};
    }
};

/// Creates the links of a chain. Each operation is defined beside the class that it creates. One
/// object for the process, never destroyed. It has no state, so any thread may use it. Each result
/// is a new object with a reference count of 0, or null if there is no memory.
class CFileOperationFactory {
 public:
    static CFileOperationFactory* Instance();

    /// A file of the file system. If bIsDownloadFile is non-zero, its path is UTF-8.
    IFileOperation* CreateLocalFile(int bIsDownloadFile);

    /// A link that gathers appended bytes and passes them on to pFile when it has dwBufferSize
    /// bytes or more.
    IFileOperation* CreateBufferDecorate(IFileOperation* pFile, CmUint32 dwBufferSize);

    /// A link that runs the operations of pActualFile on pRWThread and reports their results to
    /// pReceive on pCallerThread.
    IFileOperation* CreateFileThreadProxy(ACmThread* pRWThread, ACmThread* pCallerThread,
                                          IFileOperation* pActualFile, IFileOpStatus* pReceive,
                                          CCacheFileManager::LinkType aLinkType);

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CFileOperationFactory() = default;
};
