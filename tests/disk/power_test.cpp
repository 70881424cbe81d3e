#include <algorithm>
#include <cerrno>
#include <optional>

#include "tests/disk/PowerCuts.h"
#include "tests/support/HostTest.h"

using PowerCut = HostTest;

namespace {

constexpr std::size_t c_nDisks = 10'000;  // at most so many are checked at each point

CmInt32 Pack(const CCmString& strPath, const CCmString& strBytes) {
    CContainerWriter aWriter;
    EXPECT_EQ(AddStream(aWriter, {3, 2, 1003, 0}, strBytes), 0);
    return aWriter.Write(strPath);
}

/// Checks that the file has exactly one of these contents; "<no file>" means that it does not
/// exist.
PowerCuts::Check IsOneOf(std::vector<CCmString> vecBytes) {
    return [vecBytes = std::move(vecBytes)](const CCmString* pBytes) {
        for (const CCmString& strOne : vecBytes)
            if (strOne == (pBytes ? *pBytes : "<no file>")) return std::string();
        return (pBytes ? std::to_string(pBytes->size()) + " bytes" : "no file") +
               ", neither the old container nor the new one";
    };
}

}  // namespace

TEST_F(PowerCut, LeavesTheOldContainerOrTheWholeNewOne) {
    constexpr int c_nNoFault = -1;
    MemoryDisk& aDisk = MemoryDisk::Instance();
    SeededRandom aRandom;
    std::size_t nDisks = 0;
    for (const int nFault : {c_nNoFault, int{MemoryDisk::Op_Sync}, int{MemoryDisk::Op_SyncNames}})
        for (const unsigned nSize : {20'000U, 130'000U, 300'000U}) {
            SCOPED_TRACE(testing::Message() << nFault << ", " << nSize);
            const CCmString strOld = Pattern(nSize / 2), strNew = Pattern(nSize, 7);
            aDisk.Clear();
            EXPECT_EQ(Pack("old", strOld) + Pack("new", strNew), 0);
            const CCmString aFiles[] = {"<no file>", aDisk.Get("old"), aDisk.Get("new")};
            aDisk.m_mapNames.clear();
            aDisk.m_bLog = true;
            PowerCuts aCuts;
            for (const int nFile : {1, 2}) {
                const bool bFails = nFile == 2 && nFault != c_nNoFault;
                aCuts.Promise("c", IsOneOf({aFiles[nFile - 1], aFiles[nFile]}));
                if (bFails)
                    aDisk.m_fault = [&](const MemoryDisk::Call& aCall) {
                        return MemoryDisk::Fault{aCall.aOp == nFault, EIO};
                    };
                EXPECT_EQ(Pack("c", nFile == 1 ? strOld : strNew), bFails ? 4006 : 0);
                if (!bFails) aCuts.Promise("c", IsOneOf({aFiles[nFile]}));
            }
            EXPECT_EQ(aCuts.Find(aRandom, c_nDisks), "");
            nDisks += aCuts.CountDisks();
        }
    std::cout << nDisks << " disks\n";
    EXPECT_GE(nDisks, 100'000U);
}

/// A recorder on a disk whose syncs may fail. Bytes that the library has reported as synced have to
/// be on every possible disk from then on, except for those that it has reported as lost.
class RecordingPowerCut : public HostModeTest, public IFileSafetySink {
 protected:
    void OnFileSynced(CmUint32, CmInt32 lResult) override { m_synced = lResult; }
    void OnLowSpace(std::uint64_t) override {}

    std::size_t RunSession(unsigned nSeed);

 private:
    struct File {
        CCmString strPath;
        CmUint32 dwHandle = 0;
        CCmString strBytes = {};           // as passed to the library; some may still be gathered
        std::vector<bool> vecSynced = {};  // whether each byte is promised
    };

    void Step(SeededRandom& aRandom, Recording& aRecording);
    void Write(File& aFile, Recording& aRecording, const CCmString& strBytes, CmUint32 dwOffset);
    void Sync(File& aFile, Recording& aRecording);
    void Promise(const File& aFile);
    void PromiseAll(File& aFile, Recording& aRecording);

    bool m_bInterval = false;
    std::vector<File> m_vecFiles;
    std::optional<CmInt32> m_synced;
    std::optional<PowerCuts> m_cuts;
};
INSTANTIATE_BOTH_MODES(RecordingPowerCut);

void RecordingPowerCut::Promise(const File& aFile) {
    m_cuts->Promise(aFile.strPath, [aFile](const CCmString* pBytes) {
        const std::vector<bool>& vecSynced = aFile.vecSynced;
        for (auto it = vecSynced.begin(); it != vecSynced.end();) {
            const auto itEnd = std::find(it, vecSynced.end(), !*it);
            const auto nAt = static_cast<std::size_t>(it - vecSynced.begin());
            const auto nCount = static_cast<std::size_t>(itEnd - it);
            if (*it && !pBytes) return std::string("no file");
            if (*it && (pBytes->size() < nAt + nCount ||
                        pBytes->compare(nAt, nCount, aFile.strBytes, nAt, nCount) != 0))
                return "synced bytes from " + std::to_string(nAt) + " on are missing";
            it = itEnd;
        }
        return std::string();
    });
}

/// Promises all bytes of the file, except those that are lost.
void RecordingPowerCut::PromiseAll(File& aFile, Recording& aRecording) {
    tagFileLosses aLosses;
    EXPECT_EQ(aRecording->GetFileLosses(aFile.dwHandle, aLosses), 0);
    EXPECT_EQ(aLosses.qwUnsynced, 0U);
    aFile.vecSynced.assign(aFile.strBytes.size(), true);
    for (const tagFileHole& aHole : aLosses.vecHoles)
        for (std::uint64_t i = 0; i < aHole.qwLength; ++i)
            aFile.vecSynced[static_cast<std::size_t>(aHole.qwOffset + i)] = false;
    Promise(aFile);
}

void RecordingPowerCut::Write(File& aFile, Recording& aRecording, const CCmString& strBytes,
                              CmUint32 dwOffset) {
    if (dwOffset != c_dwEnd) {  // the disk may have the old bytes or the new ones
        for (std::size_t i = dwOffset;
             i < std::min(dwOffset + strBytes.size(), aFile.vecSynced.size()); ++i)
            aFile.vecSynced[i] = false;
        Promise(aFile);
    }
    if (aRecording.Write(aFile.dwHandle, strBytes, dwOffset) == 0)
        Overwrite(aFile.strBytes, strBytes, dwOffset);
}

void RecordingPowerCut::Sync(File& aFile, Recording& aRecording) {
    m_synced.reset();
    const CmInt32 lResult = aRecording->SyncFile(aFile.dwHandle);
    if (GetParam() == ::Sync) m_synced = lResult;
    while (!m_synced) CCmCallerThread::WaitAndRun(1000);
    if (*m_synced == 0) PromiseAll(aFile, aRecording);
}

void RecordingPowerCut::Step(SeededRandom& aRandom, Recording& aRecording) {
    const auto nFiles = static_cast<unsigned>(m_vecFiles.size());
    const unsigned nWhat = nFiles == 0 ? 0 : aRandom.Below(12);
    if (nWhat == 0 && nFiles < 3) {
        const CCmString strName = (nFiles == 1 ? "d\\" : "") + std::to_string(nFiles);
        m_vecFiles.push_back({Recording::PathOf(strName), aRecording.Open(strName)});
        return;
    }
    File& aFile = m_vecFiles[aRandom.Below(nFiles)];
    const auto nSize = static_cast<unsigned>(aFile.strBytes.size());
    if (nWhat == 1) return Sync(aFile, aRecording);
    if (nWhat == 2 && m_bInterval) {
        aRecording->FlushData(aFile.dwHandle);
        tagFileLosses aLosses;
        do {
            CCmCallerThread::WaitAndRun(1);
            aRecording->GetFileLosses(aFile.dwHandle, aLosses);
        } while (aLosses.qwPending + aLosses.qwUnsynced > 0);
        return PromiseAll(aFile, aRecording);
    }
    const CmUint32 dwOffset = nWhat == 3 && nSize > 0 ? aRandom.Below(nSize) : c_dwEnd;
    Write(aFile, aRecording, aRandom.Bytes(1 + aRandom.Below(aRandom.Below(4) ? 3'000 : 40'000)),
          dwOffset);
}

/// Returns how many disks were checked.
std::size_t RecordingPowerCut::RunSession(unsigned nSeed) {
    SeededRandom aRandom(nSeed), aFaults(nSeed + 1);
    MemoryDisk& aDisk = MemoryDisk::Instance();
    aDisk.Clear();
    aDisk.m_bLog = true;
    aDisk.m_syncDelay = std::chrono::microseconds(100);
    const bool bFaults = aRandom.Below(2) == 0;
    aDisk.m_fault = [&](const MemoryDisk::Call& aCall) {
        const bool bSync =
            aCall.aOp == MemoryDisk::Op_Sync || aCall.aOp == MemoryDisk::Op_SyncNames;
        return MemoryDisk::Fault{bFaults && bSync && aFaults.Below(4) == 0, EIO};
    };
    m_bInterval = aRandom.Below(2) == 0;
    EXPECT_EQ(CCacheFileManager::SetSyncInterval(m_bInterval ? 2 : 0), 0);
    m_vecFiles.clear();
    m_cuts.emplace();
    {
        Recording aRecording(GetParam(), &m_sink);
        aRecording->SetSafetySink(this);
        for (int i = 0; i < 25; ++i) Step(aRandom, aRecording);
    }
    CacheFileShutdown();
    for (File& aFile : m_vecFiles) {
        if (!m_bInterval || bFaults) break;
        aFile.vecSynced.assign(aFile.strBytes.size(), true);
        Promise(aFile);
    }
    aDisk.m_fault = nullptr;
    EXPECT_EQ(m_cuts->Find(aRandom, 120), "");
    m_sink.Take();
    return m_cuts->CountDisks();
}

TEST_P(RecordingPowerCut, LeavesWhatWasReportedAsSynced) {
    const unsigned nSeed = SeededRandom::ChooseSeed();
    std::size_t nDisks = 0;
    for (unsigned i = 0; i < 40 && !HasFailure(); ++i) {
        SCOPED_TRACE("repeat with CACHEFILE_TEST_SEED=" + std::to_string(nSeed + i));
        nDisks += RunSession(nSeed + i);
    }
    std::cout << nDisks << " disks\n";
    EXPECT_GT(nDisks, 5'000U);
}
