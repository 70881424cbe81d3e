#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Recorder.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

/// What the record command works on: each input with the stream that is made of it. Functions throw
/// CFailure.

/// What one stream is made of, and how far it is.
struct tagSource {
    tagSource(const tagPlan& aPlan, const tagFileDescriber& aDescriber, std::string strFile)
        : strPath(std::move(strFile)), aRecorder(aPlan, aDescriber) {}

    std::string Name() const { return StreamName(aRecorder.GetDescriber()); }

    void End() {
        bEnded = true;
        aRecorder.Close();
    }

    /// As soon as it is known how large the stream is or will be.
    void WarnOnceOfSize(std::uint64_t qwSize) {
        if (bLarge || qwSize < c_qwPlayable) return;
        bLarge = true;
        WarnOfSize(aRecorder.GetDescriber(), qwSize);
    }

    const std::string strPath;
    System::CInput aInput;
    CRecorder aRecorder;
    bool bEnded = false;
    bool bFileMade = false;  // by this process, and not there before
    bool bRecorded = false;  // the file holds what the input had, be it nothing
    std::string strError;    // why the stream is not complete; reported
    bool bLarge = false;     // and warned of
};
using Sources = std::vector<std::unique_ptr<tagSource>>;

/// The sources that the words of the command line name.
Sources MakeSources(const tagRecordOptions& aOptions);

/// Opens the inputs and sees that none of them, and nothing else, would be overwritten.
void OpenInputs(const tagRecordOptions& aOptions, const Sources& vecSources);

/// Makes the directory, and holds it against every other recorder as long as the lock lives.
void LockDirectory(const tagPlan& aPlan, System::CFileLock& aLock);

/// The record files that this process makes, exclusively. Those that no recording came to are
/// removed again; the sources must live longer.
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

/// Warns of streams that can be recorded, but not packed later.
void WarnOfUnpackable(const Sources& vecSources);
