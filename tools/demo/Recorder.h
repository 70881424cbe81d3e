#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/FileOpSink.h"
#include "tools/demo/Source.h"
#include "tools/demo/Stopwatch.h"
#include "writer/WriteFileHandler.h"

class CProgress;

/// What was recorded of one stream.
struct tagRecorded {
    std::string strFile;        ///< the record file's name
    std::uint64_t qwBytes = 0;  ///< given to the library
    std::uint64_t qwPieces = 0;
    std::uint64_t qwCallbacks = 0;
    double dSeconds = 0;  ///< from the open to the close of the stream
};

/// Where a recording lies, as the user's system writes it, with a slash at the end.
std::string RecordingDirectory(const std::string& strDirectory, CmUint32 dwRecordID);

/// "TYPE_ID-KIND.dat"
std::string RecordFileName(const tagFileDescriber& aDescriber);

/// One stream on its way into its record file. It has a handler of its own, since a report names
/// no file: so it is known which stream a report is about. Caller thread only.
class CStreamRecorder final : public IFileOpSink {
 public:
    /// aSource has to outlive the recorder; strDirectory is that of the recording.
    CStreamRecorder(ISource& aSource, CmUint32 dwRecordID, const std::string& strDirectory);

    void Open();

    /// Whether the open has been reported.
    bool IsOpenReported() const { return m_bOpenReported; }

    /// Writes the next piece, or closes the file behind the last one; false once it is closed.
    bool Step();

    /// Throws what the worker has reported, if it was a failure.
    void ThrowFailure() const;

    const tagRecorded& GetRecorded() const { return m_recorded; }

    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override;

 private:
    void Close();
    std::string Describe(const char* lpStep) const;

    struct Destroyer {
        void operator()(CWriteFileHandler* pHandler) const { pHandler->Destroy(); }
    };

    ISource& m_source;
    const std::unique_ptr<CWriteFileHandler, Destroyer> m_pHandler;
    const std::string m_strPath;
    CmUint32 m_dwHandle = 0;
    bool m_bOpenReported = false;
    std::string m_strFailure;
    std::string m_strPiece;
    CStopwatch m_time;
    tagRecorded m_recorded;
};

/// Records all sources at once, a piece of each in turn, in asynchronous mode. Needs the calling
/// thread attached. Throws CDemoError if anything fails.
class CRecorder {
 public:
    CRecorder(Sources& vecSources, CmUint32 dwRecordID, const std::string& strDirectory);

    /// Records everything and shuts the library down: then all of it is in its files.
    void Record(CProgress& aProgress);

    /// In the order of the sources.
    std::vector<tagRecorded> GetRecorded() const;

 private:
    void OpenAll();
    bool StepAll();
    void HoldBack();
    void RunCallbacks(CmUint32 dwMilliseconds);
    void ThrowFailure() const;
    std::uint64_t GetGiven() const;

    std::vector<std::unique_ptr<CStreamRecorder>> m_vecStreams;
};
