#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Limits.h"
#include "tools/cachefile/RecordPart.h"

/// A part of the recording that was made.
struct tagPartResult {
    CmUint32 dwNumber;
    std::uint64_t qwStored;
    std::string strReason;  ///< why it ended
};

/// Reads the inputs and passes their bytes to the recorders, part after part.
///
/// It lives on the stack of the record command and is used on the caller thread. Failures of
/// streams are reported when they occur and stay in the sources. What prevents a part from being
/// made is thrown as CFailure.
class CRecordLoop {
 public:
    CRecordLoop(const tagRecordOptions& aOptions, Sources& vecSources);

    /// Records until all inputs have ended, a limit is reached or the process is interrupted. When
    /// it returns, all accepted bytes are in the files or lost.
    void Run();

    const std::vector<tagPartResult>& GetParts() const { return m_vecParts; }
    bool HasNoteFailure() const { return m_bNoteFailure; }

 private:
    std::string ReadInputs();
    bool Wait(std::vector<tagSource*>& vecReady);
    bool HasGoodSource() const;
    int GetTimeout(bool bPaused) const;
    void ReadPiece(tagSource& aSource);
    void Take(tagSource& aSource, std::size_t nLength);
    void ReportFailures();
    void Report(tagSource& aSource, const std::string& strError);
    bool IsPaused(tagSource& aSource);
    bool MustWaitForOthers(const tagSource& aSource);
    bool WriteKept();
    void WaitForSpace();
    std::string NoteLoss();
    void BeginPart(CmUint32 dwNumber);
    void EndPart(const std::string& strReason);
    void BeginNextPart(const tagSource& aSource, std::size_t nLength);

    const tagRecordOptions& m_options;
    Sources& m_vecSources;
    std::vector<unsigned char> m_vecPiece;
    CProgress m_progress;
    CLimits m_limits;
    std::unique_ptr<CRecordPart> m_pPart;
    std::vector<tagPartResult> m_vecParts;
    std::uint64_t m_qwDone = 0;
    int m_nWake = -1;
    bool m_bNoteFailure = false;
};
