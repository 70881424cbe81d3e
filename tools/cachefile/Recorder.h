#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/FileOpSink.h"
#include "tools/cachefile/Checksum.h"
#include "writer/WriteFileHandler.h"

/// Its destructor shuts the library down, which writes all accepted bytes.
struct Shutdown {
    Shutdown() = default;
    ~Shutdown();
    Shutdown(const Shutdown&) = delete;
    Shutdown& operator=(const Shutdown&) = delete;
};

/// The recording to make.
struct tagPlan {
    CmUint32 dwRecordID;
    std::string strHome;
    bool bSync;
    bool bWaitWhenFull = false;  ///< on a full disk a stream waits and does not fail

    std::string Directory() const;  ///< home/ID, as the user would write it
};

/// Writes one stream of a recording. Each recorder has its own write handler, so every failure that
/// the handler reports is one of this stream. In asynchronous mode it must be used on the caller
/// thread. It knows the system's reasons only while the tool reads the trace (Trace.h).
class CRecorder : private IFileOpSink {
 public:
    CRecorder(const tagPlan& aPlan, const tagFileDescriber& aDescriber);
    virtual ~CRecorder();
    CRecorder(const CRecorder&) = delete;
    CRecorder& operator=(const CRecorder&) = delete;

    /// Opens the record file and waits for the result.
    CmInt32 Open();

    /// Whether the disk was full. With bWaitWhenFull the caller then stops writing until there is
    /// space, and calls Resume.
    bool IsFull() const { return m_bFull; }
    void Resume() { m_bFull = false; }

    /// Writes the bytes in one piece. Does nothing after a failure.
    void Write(const unsigned char* lpData, std::size_t nLength);

    /// Ends the stream. Waits until its bytes are written or lost, so that GetLosses is complete.
    /// In asynchronous mode the file is complete after a shutdown.
    void Close();

    const tagFileDescriber& GetDescriber() const { return m_describer; }
    std::filesystem::path GetPath() const;
    CmInt32 GetFailure() const { return m_lFailure; }  ///< the first one, or 0
    /// "no space left on the device (CACHE_ERR_DISK_FULL): No space left on device": the meaning
    /// of the failure, and the system's own reason if it gave one.
    std::string GetFailureText() const;
    std::uint64_t GetBytes() const { return m_qwBytes; }
    std::uint64_t GetPieces() const { return m_qwPieces; }

    /// How many bytes the file has, and how many bytes passed to Write it does not have. Until the
    /// file is complete, bytes that are still to be written count as lost.
    std::uint64_t CountStoredBytes() const;
    std::uint64_t CountLostBytes() const;
    const tagFileLosses& GetLosses() const { return m_losses; }  ///< until Close

    /// While the stream is recorded: how many bytes wait for the worker, and how many are lost.
    std::uint64_t CountPendingBytes() const { return GetPresentLosses().qwPending; }
    std::uint64_t CountKnownLosses() const { return GetPresentLosses().qwLost; }

    /// The checksum of the complete file. If bytes were lost the file is read for it, and the text
    /// is empty if that fails.
    std::string FindChecksum() const;

 private:
    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override;
    void Note(CmInt32 lResult);
    /// In synchronous mode a write that fails is no loss to the library, but its bytes are missing.
    void AddHole();
    void AddRefusedToLosses();
    tagFileLosses GetPresentLosses() const;

    struct Destroyer {
        void operator()(CWriteFileHandler* pHandler) const { pHandler->Destroy(); }
    };

    const tagPlan m_plan;
    const tagFileDescriber m_describer;
    CmUint32 m_dwHandle = 0;
    bool m_bOpenReported = false;
    bool m_bOpen = false;
    bool m_bFull = false;
    std::string m_strFileObject;  // of the library, in its trace lines
    CmInt32 m_lFailure = 0;
    std::uint64_t m_qwBytes = 0;
    std::uint64_t m_qwPieces = 0;
    CChecksum m_checksum;  // of the bytes passed to Write
    tagFileLosses m_losses;
    std::vector<tagFileHole> m_vecRefused;  // that AddHole has found
    std::uint64_t m_qwRefused = 0;          // their bytes
    std::unique_ptr<CWriteFileHandler, Destroyer> m_pHandler;
};

/// Limits the memory when bytes arrive faster than the disk writes them: waits while too many bytes
/// are pending. Does nothing in synchronous mode, which has no pending bytes.
void HoldBack();
