#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Recorder.h"
#include "tools/cachefile/Samples.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

// The inputs of the record command, each with the stream that is recorded from it. Functions throw
// CFailure.

/// What became of the bytes of one stream, in all parts of the recording.
struct tagTotals {
    std::uint64_t qwTaken = 0;
    std::uint64_t qwStored = 0;
    std::uint64_t qwLost = 0;
    std::uint64_t qwPieces = 0;
};

/// One input, its recorder, and the state of both.
struct tagSource {
    tagSource(const tagFileDescriber& aStream, std::string strFile)
        : aDescriber(aStream), strPath(std::move(strFile)) {}

    std::string Name() const { return StreamName(aDescriber); }

    /// nSources: how many sources there are.
    void BeginPart(const tagPlan& aPlan, std::size_t nSources);
    /// Adds the closed part to the totals and frees the recorder.
    void EndPart();
    /// Those of the present part are included.
    tagTotals GetTotals() const;

    void End() {
        bEnded = true;
        pRecorder->Close();
    }

    /// Call it with every size that the stream is known to have or to get.
    void WarnOnceOfSize(std::uint64_t qwSize) {
        if (bLarge || qwSize < c_qwPlayable) return;
        bLarge = true;
        WarnOfSize(aDescriber, qwSize);
    }

    const tagFileDescriber aDescriber;
    const std::string strPath;
    System::CInput aInput;
    std::unique_ptr<CRecorder> pRecorder;  // null if the present part does not have the stream
    std::optional<CSamples> aSamples;      // of the present part
    tagTotals aEarlierParts;
    bool bEnded = false;
    bool bFileMade = false;  // by this process; the file did not exist before
    bool bRecorded = false;  // the file has all bytes of the input, which may be none
    std::string strError;    // the reason of its failure, which was reported
    bool bLarge = false;     // its size was warned of
    bool bPaused = false;    // it waits for space on a full disk, which was reported
};
using Sources = std::vector<std::unique_ptr<tagSource>>;

/// The sources that the command line names.
Sources MakeSources(const tagRecordOptions& aOptions);

void OpenInputs(const Sources& vecSources);

/// Throws if a record file is also an input, or if bReplace is false and a record file exists.
void RequireNothingOverwritten(const Sources& vecSources, bool bReplace);

/// Creates the directory and locks it against other recorders while aLock exists.
void LockDirectory(const tagPlan& aPlan, std::optional<System::CFileLock>& aLock);

/// Creates the record files, and refuses files that exist. The destructor removes those that were
/// created but never recorded to. The sources must outlive it.
class CRecordFiles {
 public:
    CRecordFiles(const tagRecordOptions& aOptions, const Sources& vecSources);
    ~CRecordFiles() { RemoveUnused(); }
    CRecordFiles(const CRecordFiles&) = delete;
    CRecordFiles& operator=(const CRecordFiles&) = delete;

 private:
    void RemoveUnused() const;

    const Sources& m_vecSources;
};

/// Total bytes of the inputs, or 0 if the size of one of them is unknown.
std::uint64_t CountInput(const Sources& vecSources);

/// Warns of streams that can be recorded but not packed. bSplit: none gets too large.
void WarnOfUnpackable(const Sources& vecSources, bool bSplit);
