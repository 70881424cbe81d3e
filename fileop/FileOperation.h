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

/// The threads of an asynchronous file: where its operations run, and where its results go. Null
/// for a synchronous one. They live as long as the link that returned them.
struct tagFileThreads {
    ACmThread* pWorker = nullptr;
    ACmThread* pCaller = nullptr;
};

/// A link of a chain of objects that together operate on one file.
///
/// It is created with a reference count of 0 and put into a CRefPtr immediately; the last release
/// closes the file. Open is called first and once; Close may be repeated. The layer above ensures
/// that at most one operation of a file runs at a time. Results are codes of CmResult.h; nothing is
/// thrown.
class IFileOperation : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// Opens the file. If bWrite is non-zero, creates it with its missing directories or empties
    /// it, and opens it for reading and writing. Otherwise opens an existing file for reading.
    virtual CmInt32 Open(const CCmString& strPath, int bWrite) = 0;

    virtual CmInt32 Close() = 0;

    /// Writes all of strData at dwOffset, or at the end of the file for 0xFFFFFFFF.
    virtual CmInt32 WriteData(const CCmString& strData, CmUint32 dwOffset) = 0;

    /// Reads up to dwLength bytes at dwOffset into lpBuffer; dwLength then counts the bytes read,
    /// fewer only at the end of the file. On failure it stays as it was.
    virtual CmInt32 ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) = 0;

    /// A read that may complete later. A plain file reads at once and sets dwLength; a proxy
    /// queues the read, leaves dwLength alone, and after returning 0 owns lpBuffer (from array
    /// new) until the receiver's OnDataReady gets it together with aDataInfo.
    virtual CmInt32 AsyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer,
                                  CmUint32 dwOffset, CmUint32& dwLength) = 0;

    /// The path of the last Open, whether it succeeded or not; valid while the object lives.
    virtual const CCmString& GetFileName() = 0;

    /// Passes gathered bytes on to the file and flushes its stream. Reports nothing.
    virtual void Flush() = 0;

    // The operations above keep their order; new ones are added below.

    /// As Open, but a relative path is relative to aPlace. The default ignores aPlace: a link that
    /// opens the file later records the directory in its Open and passes it on.
    virtual CmInt32 OpenAt(const CCmString& strPath, int bWrite, const CmPlace& aPlace);

    /// WriteData of nLength bytes in any memory. They stay the caller's; a link that needs them
    /// after the call copies them.
    virtual CmInt32 WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) = 0;

    /// WriteData of a string that the caller no longer needs: the link may take its memory instead
    /// of copying it. The contents of strData afterwards are unspecified.
    virtual CmInt32 GiveData(CCmString&& strData, CmUint32 dwOffset) = 0;

    /// Returns how many bytes WriteData of qwLength bytes at dwOffset would queue for the worker
    /// thread: 0 when it would only gather them, or write them in the call. Links that pass writes
    /// on ask the next link.
    virtual std::uint64_t BytesToQueue(std::uint64_t /*qwLength*/, CmUint32 /*dwOffset*/) {
        return 0;
    }

    /// The threads of the file. Links that pass operations on ask the next link. Constant.
    virtual tagFileThreads GetThreads() { return {}; }

    /// From now on what the file queues for the worker thread counts in pCount too. The link holds
    /// it. Links that pass writes on tell the next link; without a worker there is nothing to
    /// count.
    virtual void CountPendingIn(CPendingCount* /*pCount*/) {}

    /// The size of the open file in bytes. A link that has none returns CACHE_ERR_FAILED; on
    /// failure qwSize stays as it was. On the thread that reads the file.
    virtual CmInt32 GetSize(std::uint64_t& /*qwSize*/) { return CACHE_ERR_FAILED; }

    /// Runs pEvent on the thread that reads the file, after everything that was queued there
    /// before, and waits for it. The link owns the event. Returns the event's result, or
    /// CACHE_ERR_INVALID_STATE if that thread has ended. A plain file runs it in the call.
    virtual CmInt32 SendToReader(ICmEvent* pEvent);

    /// Passes gathered bytes on and brings the file to the disk. A link that syncs later returns 0
    /// for a sync that is queued; its result is then reported for the handle dwHandle, or if that
    /// is 0, as a write's if it fails.
    virtual CmInt32 Sync(CmUint32 /*dwHandle*/) { return CACHE_ERR_FAILED; }

    /// Where the file's bytes are accounted for, which any thread may use; null for a link without
    /// a file that has it. It lives as long as the link.
    virtual CFileLedger* Ledger() { return nullptr; }

    /// The free space of the file's file system in bytes. Where and how it fails as GetSize.
    virtual CmInt32 GetFreeSpace(std::uint64_t& /*qwBytes*/) { return CACHE_ERR_FAILED; }
};

/// Creates the links of a chain. One object for the process, never destroyed; it has no state, so
/// any thread may use it. Each result is new, with a reference count of 0, or null if there is no
/// memory.
class CFileOperationFactory {
 public:
    static CFileOperationFactory* Instance();

    /// A file of the file system; bIsDownloadFile non-zero: its path is UTF-8 text.
    IFileOperation* CreateLocalFile(int bIsDownloadFile);

    /// A link that gathers appended bytes and passes them on to pFile when there are dwBufferSize.
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
