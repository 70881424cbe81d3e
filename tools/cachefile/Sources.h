#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Recorder.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

// The inputs of the record command, each with the stream that is recorded from it. Functions throw
// CFailure.

/// One input, its recorder, and the state of both.
struct tagSource {
    tagSource(const tagPlan& aPlan, const tagFileDescriber& aDescriber, std::string strFile)
        : strPath(std::move(strFile)), aRecorder(aPlan, aDescriber) {}

    std::string Name() const { return StreamName(aRecorder.GetDescriber()); }

    void End() {
        bEnded = true;
        aRecorder.Close();
    }

    /// Call it with every size that the stream is known to have or to get.
    void WarnOnceOfSize(std::uint64_t qwSize) {
        if (bLarge || qwSize < c_qwPlayable) return;
        bLarge = true;
        WarnOfSize(aRecorder.GetDescriber(), qwSize);
    }

    const std::string strPath;
    System::CInput aInput;
    CRecorder aRecorder;
    bool bEnded = false;
    bool bFileMade = false;  // by this process; the file did not exist before
    bool bRecorded = false;  // the file has all bytes of the input, which may be none
    std::string strError;    // the reason of its failure, which was reported
    bool bLarge = false;     // its size was warned of
};
using Sources = std::vector<std::unique_ptr<tagSource>>;

/// The sources that the command line names.
Sources MakeSources(const tagRecordOptions& aOptions);

/// Opens the inputs. Throws if one of them, or another file, would be overwritten.
void OpenInputs(const tagRecordOptions& aOptions, const Sources& vecSources);

/// Creates the directory and locks it against other recorders while aLock exists.
void LockDirectory(const tagPlan& aPlan, System::CFileLock& aLock);

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

/// Warns of streams that can be recorded but not packed.
void WarnOfUnpackable(const Sources& vecSources);
