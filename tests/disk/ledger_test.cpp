#include <algorithm>
#include <cerrno>
#include <numeric>
#include <thread>

#include "tests/disk/MemoryDisk.h"
#include "tests/support/HostTest.h"

// Random sessions on a disk whose calls fail at random. Files consist of words of 4 bytes that are
// all different, so that each word can be found again. For each word exactly one of these is true:
// it is in its file, or its call returned an error, or the library has counted it as lost. A word
// that is in its file counts as lost if its sync has failed.

namespace {

constexpr unsigned c_nSessions = 1'000;  // in each mode
constexpr CmUint32 c_dwWord = 4;

/// The faults of the disk: single failures, and periods in which the disk is full. A failed write
/// has written a part of its bytes, which stays in the file unless the file is truncated. A failed
/// sync loses the bytes that were written to the file since the last sync.
class Faults {
 public:
    Faults(unsigned nSeed, unsigned nRate) : m_random(nSeed), m_nRate(nRate) {}

    MemoryDisk::Fault operator()(const MemoryDisk::Call& aCall) {
        MemoryDisk::Fault aFault;
        if (aCall.aOp == MemoryDisk::Op_SyncNames) return aFault;
        const bool bWrite = aCall.aOp == MemoryDisk::Op_Write;
        if (m_random.Below(500) == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
        if (m_nRate > 0 && m_random.Below(8 * m_nRate) == 0) m_nFull = 1 + m_random.Below(20);
        if (bWrite && m_nFull > 0 && m_nFull-- > 0)
            aFault = {true, ENOSPC};
        else if (m_nRate > 0 && m_random.Below(m_nRate) == 0)
            aFault = {true, aCall.aOp == MemoryDisk::Op_Close ? EINTR : EIO};
        if (aFault.bFails && bWrite)
            aFault.dwDone =
                c_dwWord * m_random.Below(static_cast<unsigned>(aCall.dwLength / c_dwWord));
        Remember(aCall, aFault);
        return aFault;
    }

    enum Mark { Mark_None, Mark_Unsynced, Mark_Lost, Mark_Torn, Mark_Uncut };

    /// The mark of each word of the file.
    std::vector<Mark> MarksOf(const MemoryDisk::File& aFile) const {
        std::vector<Mark> vecMarks(aFile.strBytes.size() / c_dwWord, Mark_None);
        for (const Range& aRange : m_vecRanges)
            if (aRange.pFile == &aFile)
                std::fill(vecMarks.begin() + aRange.nFrom, vecMarks.begin() + aRange.nTo,
                          aRange.aMark);
        return vecMarks;
    }

 private:
    struct Range {
        const MemoryDisk::File* pFile;
        std::ptrdiff_t nFrom, nTo;  // words
        Mark aMark;
    };

    void Remember(const MemoryDisk::Call& aCall, const MemoryDisk::Fault& aFault) {
        const auto nFrom = static_cast<std::ptrdiff_t>(aCall.qwOffset / c_dwWord);
        const std::size_t dwDone = aFault.bFails ? aFault.dwDone : aCall.dwLength;
        if (aCall.aOp == MemoryDisk::Op_Write)
            m_vecRanges.push_back({aCall.pFile, nFrom,
                                   nFrom + static_cast<std::ptrdiff_t>(dwDone / c_dwWord),
                                   aFault.bFails ? Mark_Torn : Mark_Unsynced});
        if (aCall.aOp == MemoryDisk::Op_Cut) m_vecRanges.back().aMark = Mark_Uncut;
        if (aCall.aOp == MemoryDisk::Op_Cut && !aFault.bFails) m_vecRanges.pop_back();
        if (aCall.aOp != MemoryDisk::Op_Sync) return;
        for (Range& aRange : m_vecRanges)
            if (aRange.pFile == aCall.pFile && aRange.aMark == Mark_Unsynced)
                aRange.aMark = aFault.bFails ? Mark_Lost : Mark_None;
    }

    SeededRandom m_random;
    const unsigned m_nRate;
    unsigned m_nFull = 0;  // how many further writes find the disk full
    std::vector<Range> m_vecRanges;
};

class Ledger : public HostModeTest {
 protected:
    void RunSession(unsigned nSeed);

 private:
    struct Piece {
        std::size_t nFile;
        CmUint32 dwFirst, dwEnd;  // words
        CmUint32 dwHome;          // an offset in the file, or c_dwEnd
        bool bAccepted;
    };
    struct Open {
        CmUint32 dwHandle = 0;
        CmUint32 dwEnd = 0;  // all pieces so far end here or before
    };

    void Step(SeededRandom& aRandom, CWriteFileHandler& aHandler);
    void Write(SeededRandom& aRandom, CWriteFileHandler& aHandler, bool bAppend);
    std::uint64_t CountMissing(const Faults& aFaults) const;

    std::vector<Open> m_vecFiles;  // named "0", "1" and so on
    std::vector<Piece> m_vecPieces;
    CmUint32 m_dwNext = 1;
};
INSTANTIATE_BOTH_MODES(Ledger);

/// An append, or a write at an offset that no other piece reaches.
void Ledger::Write(SeededRandom& aRandom, CWriteFileHandler& aHandler, bool bAppend) {
    const std::size_t nFile = aRandom.Below(static_cast<unsigned>(m_vecFiles.size()));
    Open& aFile = m_vecFiles[nFile];
    const CmUint32 dwWords = 1 + aRandom.Below(aRandom.Below(16) ? 300 : 12'000);
    std::vector<CmUint32> vecWords(dwWords);
    std::iota(vecWords.begin(), vecWords.end(), m_dwNext);
    const CmUint32 dwHome = bAppend ? c_dwEnd : aFile.dwEnd + c_dwWord * aRandom.Below(100);
    aFile.dwEnd = (bAppend ? aFile.dwEnd : dwHome) + c_dwWord * dwWords;
    const CmInt32 lResult =
        aHandler.WriteData(aFile.dwHandle, reinterpret_cast<const unsigned char*>(vecWords.data()),
                           c_dwWord * dwWords, dwHome);
    m_vecPieces.push_back({nFile, m_dwNext, m_dwNext + dwWords, dwHome, lResult == 0});
    m_dwNext += dwWords;
}

void Ledger::Step(SeededRandom& aRandom, CWriteFileHandler& aHandler) {
    const unsigned nWhat = m_vecFiles.empty() ? 0 : aRandom.Below(24);
    const auto nFiles = static_cast<unsigned>(m_vecFiles.size());
    Open aNew;
    if (nWhat == 0 && nFiles < 6) {
        if (aHandler.OpenWritingFile(std::to_string(nFiles), aNew.dwHandle) == 0)
            m_vecFiles.push_back(aNew);
    } else if (nWhat == 1) {
        aHandler.FlushData(m_vecFiles[aRandom.Below(nFiles)].dwHandle);
    } else if (nWhat == 2) {
        aHandler.CloseFile(m_vecFiles[aRandom.Below(nFiles)].dwHandle);
    } else if (nWhat == 3) {
        CCmCallerThread::RunPending();
    } else if (nWhat == 4) {
        CCacheFileManager::SetPendingLimit(aRandom.Below(2) ? 100'000 : c_qwNoLimit);
    } else if (nWhat == 6) {
        aHandler.SyncFile(m_vecFiles[aRandom.Below(nFiles)].dwHandle);
    } else if (nWhat == 7) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));  // an age, if one is set
        CCacheFileManager::FlushAged();
    } else if (nWhat == 5 && aRandom.Below(10) == 0) {
        CacheFileShutdown();
    } else if (nFiles > 0) {
        Write(aRandom, aHandler, nWhat > 8);
    }
}

/// How many bytes of accepted pieces are missing. A byte is missing if it is not in its file, if it
/// is there only because a failed write was not truncated, or if its sync failed.
std::uint64_t Ledger::CountMissing(const Faults& aFaults) const {
    std::vector<char> vecThere(m_dwNext);
    for (std::size_t nFile = 0; nFile < m_vecFiles.size(); ++nFile) {
        const CCmString strKey = MemoryDisk::Key(Recording::PathOf(std::to_string(nFile)));
        const auto it = MemoryDisk::Instance().m_mapNames.find(strKey);
        if (it == MemoryDisk::Instance().m_mapNames.end()) continue;  // its open failed
        EXPECT_EQ(it->second->nOpen, 0);
        const CCmString& strFile = it->second->strBytes;
        std::vector<CmUint32> vecWords(strFile.size() / c_dwWord);
        strFile.copy(reinterpret_cast<char*>(vecWords.data()), strFile.size());
        CmUint32 dwLast = 0;  // the last appended word
        const std::vector<Faults::Mark> vecMarks = aFaults.MarksOf(*it->second);
        const Piece* pPiece = m_vecPieces.data();
        for (std::size_t nAt = 0; nAt < vecWords.size(); ++nAt) {
            const CmUint32 dwWord = vecWords[nAt];
            if (dwWord == 0) continue;  // a hole
            if (dwWord < pPiece->dwFirst || dwWord >= pPiece->dwEnd)
                pPiece = &*(std::upper_bound(m_vecPieces.begin(), m_vecPieces.end(), dwWord,
                                             [](CmUint32 dwOne, const Piece& aOther) {
                                                 return dwOne < aOther.dwFirst;
                                             }) -
                            1);
            const bool bAppended = pPiece->dwHome == c_dwEnd;
            const bool bPlace = bAppended
                                    ? dwWord > dwLast
                                    : nAt == pPiece->dwHome / c_dwWord + dwWord - pPiece->dwFirst;
            if (pPiece->nFile != nFile || !bPlace) {
                ADD_FAILURE() << "file " << nFile << " at word " << nAt << ": not from there";
                break;
            }
            if (bAppended) dwLast = dwWord;
            const Faults::Mark aMark = vecMarks[nAt];
            vecThere[dwWord] = aMark <= Faults::Mark_Unsynced;
            if (aMark == Faults::Mark_Torn ? !bAppended
                                           : aMark > Faults::Mark_Torn || pPiece->bAccepted)
                continue;
            ADD_FAILURE() << "file " << nFile << " at word " << nAt
                          << ": there, though its write failed";
            break;
        }
    }
    std::uint64_t qwMissing = 0;
    for (const Piece& aPiece : m_vecPieces)
        if (aPiece.bAccepted)
            qwMissing += c_dwWord *
                         static_cast<std::uint64_t>(std::count(vecThere.begin() + aPiece.dwFirst,
                                                               vecThere.begin() + aPiece.dwEnd, 0));
    return qwMissing;
}

void Ledger::RunSession(unsigned nSeed) {
    MemoryDisk::Instance().Clear();
    m_vecFiles.clear();
    m_vecPieces.clear();
    m_dwNext = 1;
    SeededRandom aRandom(nSeed);
    const unsigned aRates[] = {0, 80, 10};
    Faults aFaults(nSeed + 1, aRates[aRandom.Below(3)]);
    MemoryDisk::Instance().m_fault = std::ref(aFaults);
    CCacheFileManager::SetGatherAge(aRandom.Below(2));
    {
        Recording aRecording(GetParam(), &m_sink);
        for (unsigned i = 10 + aRandom.Below(50); i > 0; --i)
            Step(aRandom, *aRecording.operator->());
        if (aRandom.Below(2)) aRecording.Destroy();
        if (aRandom.Below(2)) CacheFileShutdown();
    }
    CacheFileShutdown();
    CCacheFileManager::SetPendingLimit(c_qwNoLimit);
    CCacheFileManager::SetGatherAge(0);
    EXPECT_EQ(CountMissing(aFaults), m_lost.Take()) << "missing, counted as lost";
    EXPECT_EQ(CCacheFileManager::GetPendingBytes(), 0U);
    m_sink.Take();
    m_trace.TakeErrors();
    m_trace.TakeInfos();
}

}  // namespace

TEST_P(Ledger, HoldsEachByteOnce) {
    const unsigned nSeed = SeededRandom::ChooseSeed();
    for (unsigned i = 0; i < c_nSessions && !HasFailure(); ++i) {
        SCOPED_TRACE("repeat with CACHEFILE_TEST_SEED=" + std::to_string(nSeed + i));
        RunSession(nSeed + i);
    }
    MemoryDisk::Instance().Clear();
}
