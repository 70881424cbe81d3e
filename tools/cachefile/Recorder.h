#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "core/FileOpSink.h"
#include "writer/WriteFileHandler.h"

/// Ends asynchronous mode when it goes.
struct Shutdown {
    Shutdown() = default;
    ~Shutdown();
    Shutdown(const Shutdown&) = delete;
    Shutdown& operator=(const Shutdown&) = delete;
};

/// Where a recording is made.
struct tagPlan {
    CmUint32 dwRecordID;
    std::string strHome;
    bool bSync;

    std::string Directory() const;  ///< home/ID, as the user would write it
};

/// Writes one stream of a recording through a write handler of its own, so that each failure is
/// known to be this stream's. In asynchronous mode the thread has to be the caller thread. The
/// system's reasons are known only while the tool listens to the trace (Trace.h).
class CRecorder : private IFileOpSink {
 public:
    CRecorder(const tagPlan& aPlan, const tagFileDescriber& aDescriber);
    virtual ~CRecorder();
    CRecorder(const CRecorder&) = delete;
    CRecorder& operator=(const CRecorder&) = delete;

    /// Opens the record file and waits until it is known how that went.
    CmInt32 Open();

    /// Takes the bytes in one piece, unless something has failed before.
    void Write(const unsigned char* lpData, std::size_t nLength);

    /// No more bytes come. In asynchronous mode the file is complete after a shutdown.
    void Close();

    const tagFileDescriber& GetDescriber() const { return m_describer; }
    std::filesystem::path GetPath() const;
    CmInt32 GetFailure() const { return m_lFailure; }  ///< the first one, or 0
    /// "no space left on the device (CACHE_ERR_DISK_FULL): No space left on device": what the
    /// failure means, and the system's own reason if it gave one.
    std::string GetFailureText() const;
    std::uint64_t GetBytes() const { return m_qwBytes; }
    std::uint64_t GetPieces() const { return m_qwPieces; }

    /// How many bytes are in the file, and how many that were taken are not. Until the file is
    /// complete, bytes that are yet to be written count as lost.
    std::uint64_t CountStoredBytes() const;
    std::uint64_t CountLostBytes() const;

 private:
    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override;
    void Note(CmInt32 lResult);

    struct Destroyer {
        void operator()(CWriteFileHandler* pHandler) const { pHandler->Destroy(); }
    };

    const tagPlan m_plan;
    const tagFileDescriber m_describer;
    CmUint32 m_dwHandle = 0;
    bool m_bOpenReported = false;
    std::string m_strFileObject;  // of the library, in its trace lines
    CmInt32 m_lFailure = 0;
    std::uint64_t m_qwBytes = 0;
    std::uint64_t m_qwPieces = 0;
    std::unique_ptr<CWriteFileHandler, Destroyer> m_pHandler;
};

/// Keeps memory small when the bytes come faster than the disk takes them: waits while the worker
/// has many to write. Does nothing in synchronous mode, where none are pending.
void HoldBack();
