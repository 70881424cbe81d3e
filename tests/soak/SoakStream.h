#pragma once

#include <stdexcept>

#include "tests/support/HostTest.h"

/// What the streams of a soak have done so far, and the state of its disk.
struct SoakTotals {
    std::uint64_t qwOperations = 0;
    std::uint64_t qwAccepted = 0;  ///< bytes whose call returned 0
    std::uint64_t qwMissing = 0;   ///< those of them that are not in the files of finished streams
    CmUint32 dwOpens = 0;
    unsigned nFullPeriods = 0;  ///< how often the disk was full, including now
    bool bFull = false;
};

/// Runs everything that is queued for the worker, and the callbacks.
struct SoakHost : HostTest {
    using HostTest::Settle;
};

inline void SoakRequire(bool bHolds, const std::string& strWhat) {
    if (!bHolds) throw std::runtime_error(strWhat);
}

/// One of the streams of a soak. It opens a new file after each one that it has finished, in a
/// random mode. The file consists of words of 4 bytes, which name the file and count from 0, so
/// each accepted byte can be found again. Functions throw std::runtime_error if something does not
/// hold. All are called on one thread, the caller thread.
class SoakStream final : public IFileOpSink {
 public:
    explicit SoakStream(SoakTotals& aTotals) : m_totals(aTotals) {}

    /// Does one random operation with the stream.
    void Step(SeededRandom& aRandom);

    /// Passes the gathered bytes on, if a file is open.
    void Flush();

    /// Closes the file, if one is open, in one of the ways that hosts have. Compares its bytes with
    /// what was accepted and with the reports. bStopped: the worker was stopped before.
    void Finish(SeededRandom& aRandom, bool bStopped);

    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override;

 private:
    struct Gap {
        std::uint64_t qwOffset, qwLength;
    };

    void Open(SeededRandom& aRandom);
    void Append(SeededRandom& aRandom);
    void Play(SeededRandom& aRandom);
    CmUint32 Tag() const { return m_dwOpen % 4'095 + 1; }
    CCmString Words(CmUint32 dwFirst, CmUint32 dwWords) const;
    std::vector<Gap> GapsIn(const CCmString& strBytes, bool bWhole) const;
    void CheckLosses();
    void CheckFile(bool bReported);
    /// Requires a code that a call may return here: 0 or, if the disk was full, 4003.
    void CheckCode(CmInt32 lResult, const char* lpWhat) const;
    bool MayLose() const { return m_totals.nFullPeriods != m_nFullPeriods; }

    SoakTotals& m_totals;
    CHandlerPtr<CWriteFileHandler> m_pHandler;  // null if no file is open
    bool m_bAsync = false;
    CmUint32 m_dwOpen = 0;  // the number of the open, and of the recording
    CmUint32 m_dwHandle = 0;
    CmUint32 m_dwWords = 0;  // accepted
    unsigned m_nFullPeriods = 0;
    unsigned m_nReports = 0;
    bool m_bOpenFailed = false;
    std::vector<tagFileHole> m_vecHoles;
    bool m_bHoles = false;  // m_vecHoles has all losses of the file
};
