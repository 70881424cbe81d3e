#include "async/FileThreadManager.h"
#include "tests/support/FileLink.h"
#include "tests/support/HostTest.h"

using Fault = HostModeTest;
INSTANTIATE_BOTH_MODES(Fault);

// One call after the other fails at the bottom of the chain. Whichever it is, somebody is told,
// and the file holds what the other calls wrote.
TEST_P(Fault, WhicheverCallFailsIsToldAndHarmsNoOther) {
    const struct {
        const char* lpText;
        CmUint32 dwOffset;
    } aWrites[] = {{"aaaabbbbbb", c_dwEnd}, {"XX", 1}, {"cc", c_dwEnd}, {"dd", c_dwEnd}};
    constexpr int nCalls = 6;  // the open, the writes, the close
    for (int nFailing = 1; nFailing <= nCalls; ++nFailing) {
        SCOPED_TRACE(nFailing);
        const CCmString strName = "f" + std::to_string(nFailing);
        LinkScript aScript;
        aScript.m_fault = [=](const std::string&, int nCall) {
            return nCall == nFailing ? 4003 : 0;
        };
        CFileOperationFactory* const pFactory = CFileOperationFactory::Instance();
        CRefPtr<IFileOperation> pTop = new FileLink(aScript, pFactory->CreateLocalFile(0));
        const CRefPtr<IFileOpStatus> pReceiver = new TestReceiver(m_sink);
        if (GetParam() == Async)
            pTop = pFactory->CreateFileThreadProxy(
                Worker(), CFileThreadManager::Instance()->GetCallerThread(), pTop.Get(),
                pReceiver.Get(), CCacheFileManager::Link_Local);
        pTop = pFactory->CreateBufferDecorate(pTop.Get(), 8);

        std::optional<ThreadGate> aGate;  // no failure is known before all calls are queued
        if (GetParam() == Async) aGate.emplace(Worker());
        bool bTold = false;
        const auto call = [&](CmInt32 lResult) { bTold = bTold || lResult == 4003; };
        call(pTop->Open(".\\" + strName, 1));
        if (!bTold) {  // a handler gives up here
            call(pTop->WriteData("aaaa", c_dwEnd));
            call(pTop->WriteData("bbbbbb", c_dwEnd));
            call(pTop->WriteData("XX", 1));
            call(pTop->WriteData("cc", c_dwEnd));
            pTop->Flush();
            call(pTop->WriteData("dd", c_dwEnd));
            call(pTop->Close());
        }
        aGate.reset();
        pTop = nullptr;  // closes once more, which the script doesn't fail
        Settle();
        const std::uint64_t qwLost = m_lost.Take();
        const std::string strTold = m_sink.Take();
        if (GetParam() == Async) {
            EXPECT_FALSE(bTold) << "every call is queued";
            EXPECT_NE(strTold.find(" 4003"), std::string::npos) << strTold;
        } else {
            EXPECT_EQ(strTold, "");
            EXPECT_TRUE(bTold || qwLost > 0);
        }

        CCmString strWanted;
        for (int i = 0; i < 4; ++i)
            if (nFailing != i + 2) Overwrite(strWanted, aWrites[i].lpText, aWrites[i].dwOffset);
        if (nFailing == 1) strWanted = "<no file>";
        ExpectFile(strName, strWanted);
    }
}
