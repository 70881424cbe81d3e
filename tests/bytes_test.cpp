#include <array>

#include "async/FileThreadManager.h"
#include "tests/support/FileLink.h"
#include "tests/support/HostTest.h"

using Bytes = HostModeTest;
INSTANTIATE_BOTH_MODES(Bytes);

TEST_P(Bytes, RandomCallsOnSeveralFilesGiveWhatAModelGives) {
    struct File {
        CCmString strName;
        CmUint32 dwHandle = 0;  // 0: closed
        CCmString strModel = {};
    };
    std::array<File, 4> aFiles{{{"a"}, {"b"}, {"c\\d.bin"}, {"c\\e.bin"}}};
    SeededRandom aRandom;
    Recording aRecording(GetParam(), &m_sink);
    for (int nStep = 0; nStep < 400; ++nStep) {
        File& aFile = aFiles[aRandom.Below(4)];
        const unsigned nDice = aRandom.Below(100);
        if (!aFile.dwHandle) {
            aFile.dwHandle = aRecording.Open(aFile.strName);
            aFile.strModel.clear();
        } else if (nDice < 88) {
            const bool bAppend = nDice < 60;
            const unsigned nLimit = nDice < 40 ? 3000 : bAppend ? 100'001 : 5000;
            const CCmString strBytes = aRandom.Bytes(aRandom.Below(nLimit));
            const auto nSize = static_cast<unsigned>(aFile.strModel.size());
            const CmUint32 dwOffset = bAppend ? c_dwEnd : aRandom.Below(nSize + 2000);
            ASSERT_EQ(aRecording.Write(aFile.dwHandle, strBytes, dwOffset), 0);
            Overwrite(aFile.strModel, strBytes, dwOffset);
        } else if (nDice < 95) {
            aRecording->FlushData(aFile.dwHandle);
            Settle();
            ExpectFile(Recording::PathOf(aFile.strName), aFile.strModel);
        } else {
            ASSERT_EQ(aRecording->CloseFile(aFile.dwHandle), 0);
            aFile.dwHandle = 0;
        }
    }
    aRecording.Destroy();  // closes what is open
    CacheFileShutdown();
    for (const File& aFile : aFiles) ExpectFile(Recording::PathOf(aFile.strName), aFile.strModel);
    EXPECT_EQ(m_lost.Take(), 0U);
    EXPECT_EQ(m_trace.TakeErrors(), "");
}

// One call after the other fails at the bottom of the chain. Whichever it is, somebody is told,
// and the file holds what the other calls wrote.
TEST_P(Bytes, WhicheverCallFailsIsToldAndHarmsNoOther) {
    const struct {
        const char* lpText;
        CmUint32 dwOffset;
    } aWrites[] = {{"aaaabbbb", c_dwEnd}, {"XX", 1}, {"cc", c_dwEnd}, {"dd", c_dwEnd}};
    for (int nFailing = 1; nFailing <= 6; ++nFailing) {  // the open, the writes, the close
        SCOPED_TRACE(nFailing);
        const CCmString strName = "f" + std::to_string(nFailing);
        LinkScript aScript;
        aScript.Fail([=](const std::string&, int n) { return n == nFailing ? 4003 : 0; });
        CFileOperationFactory* const pFactory = CFileOperationFactory::Instance();
        CRefPtr<IFileOperation> pTop = new FileLink(aScript, pFactory->CreateLocalFile(0));
        const CRefPtr<IFileOpStatus> pReceiver = new TestReceiver(m_sink);
        std::optional<ThreadGate> aGate;  // no failure is known before all calls are queued
        if (GetParam() == Async) {
            pTop = pFactory->CreateFileThreadProxy(
                Worker().Get(), CFileThreadManager::Instance()->GetCallerThread().Get(), pTop.Get(),
                pReceiver.Get(), CCacheFileManager::Link_Local);
            aGate.emplace(Worker());
        }
        pTop = pFactory->CreateBufferDecorate(pTop.Get(), 8);
        bool bTold = pTop->Open(".\\" + strName, 1) == 4003;
        const bool bOpen = !bTold;
        for (const auto& aWrite : aWrites) {
            if (bOpen && pTop->WriteData(aWrite.lpText, aWrite.dwOffset) == 4003) bTold = true;
            if (*aWrite.lpText == 'c') pTop->Flush();
        }
        if (bOpen && pTop->Close() == 4003) bTold = true;
        aGate.reset();
        pTop = nullptr;  // closes once more, which the script doesn't fail
        Settle();
        if (m_lost.Take() > 0) bTold = true;
        const std::string strTold = m_sink.Take();
        const bool bCalledBack = strTold.find(" 4003") != std::string::npos;
        EXPECT_TRUE(GetParam() == Async ? bCalledBack : bTold && strTold.empty()) << strTold;

        CCmString strWanted;
        for (int i = 0; i < 4; ++i)
            if (nFailing != i + 2) Overwrite(strWanted, aWrites[i].lpText, aWrites[i].dwOffset);
        ExpectFile(strName, nFailing == 1 ? "<no file>" : strWanted);
    }
}
