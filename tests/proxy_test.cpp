#include <thread>

#include "async/FileEvents.h"
#include "async/FileThreadManager.h"
#include "tests/support/FileLink.h"
#include "tests/support/HostTest.h"

namespace {

const char* const c_szProxy = "async/FileThreadProxy.cpp";
const char* const c_szEvents = "async/FileEvents.cpp";
const char* const c_szAllFour = "pRWThread && pCallerThread && pActualFile && pReceive";
const char* const c_szThreads = "m_pRWThread && m_pCallerThread";
const tagDataInfo c_info{3, 1003, 77, 4};

/// A proxy over a scripted link over a local file, and what a handler would be told.
class Proxy : public HostTest {
 protected:
    Proxy() { Make(Worker(), Caller(), true, true); }
    ~Proxy() override {
        m_pProxy = nullptr;
        CacheFileShutdown();  // no request may outlive the script
    }

    static ACmThread* Caller() { return CFileThreadManager::Instance()->GetCallerThread(); }

    void Make(ACmThread* pRW, ACmThread* pCaller, bool bFile, bool bReceiver,
              CCacheFileManager::LinkType aLink = CCacheFileManager::Link_Local) {
        CFileOperationFactory* const pFactory = CFileOperationFactory::Instance();
        const CRefPtr<IFileOperation> pFile =
            bFile ? new FileLink(m_script, pFactory->CreateLocalFile(0)) : nullptr;
        const CRefPtr<IFileOpStatus> pReceiver = bReceiver ? new TestReceiver(m_sink) : nullptr;
        m_pProxy =
            pFactory->CreateFileThreadProxy(pRW, pCaller, pFile.Get(), pReceiver.Get(), aLink);
        m_script.Take();
    }

    CmInt32 Append(const CCmString& strData) { return m_pProxy->WriteData(strData, c_dwEnd); }

    /// Asks for a read into a new buffer, and frees that if it was refused.
    CmInt32 AsyncRead(CmUint32 dwOffset, CmUint32 dwLength) {
        auto* const lpBuffer = new unsigned char[dwLength + 1];
        CmUint32 dwWanted = dwLength;
        const CmInt32 lResult = m_pProxy->AsyncReadData(c_info, lpBuffer, dwOffset, dwWanted);
        EXPECT_EQ(dwWanted, dwLength);
        if (lResult != 0) delete[] lpBuffer;
        return lResult;
    }

    /// The bytes that a synchronous read gives, or "error CODE".
    CCmString SyncRead(CmUint32 dwOffset, CmUint32 dwLength) {
        CCmString strBytes(dwLength, '\0');
        auto* const lpBuffer = reinterpret_cast<unsigned char*>(strBytes.data());
        const CmInt32 lResult = m_pProxy->ReadData(lpBuffer, dwOffset, dwLength);
        return lResult == 0 ? strBytes.substr(0, dwLength) : "error " + std::to_string(lResult);
    }

    std::string Told() {
        Settle();
        return m_sink.Take();
    }

    LinkScript m_script;
    CRefPtr<IFileOperation> m_pProxy;
};

}  // namespace

TEST_F(Proxy, QueuesInOrderAndReportsOpensReadsAndFailuresOnly) {
    {
        ThreadGate aGate(Worker());
        EXPECT_EQ(m_pProxy->Open(".\\a", 1), 0);
        CCmString strData = "0123456789";
        EXPECT_EQ(Append(strData), 0);
        strData = "gone";  // the request has its copy
        EXPECT_EQ(m_pProxy->WriteData("AB", 2), 0);
        m_pProxy->Flush();
        EXPECT_EQ(AsyncRead(6, 100), 0);
        EXPECT_EQ(m_pProxy->Close(), 0);
        EXPECT_EQ(m_pProxy->GetFileName(), ".\\a");
        EXPECT_EQ(m_script.Take(), "");
    }
    EXPECT_EQ(Told(), "Open 0, Data 4");
    EXPECT_EQ(m_sink.m_strData, "6789");
    EXPECT_EQ(m_sink.m_dataInfo.wDataType, 3);
    EXPECT_EQ(m_sink.m_dataInfo.dwFileID, 1003U);
    EXPECT_EQ(m_sink.m_dataInfo.dwDataLen, 77U);
    EXPECT_EQ(m_sink.m_dataInfo.byFileType, 4);
    EXPECT_EQ(m_script.Take(),
              "Open .\\a 1\nWrite 0123456789@end\nWrite AB@2\nRead 100@6\nClose\n");
    EXPECT_NE(m_script.m_thread, std::this_thread::get_id());
    ExpectFile("a", "01AB456789");
    EXPECT_EQ(m_trace.TakeErrors(), "");
}

TEST_F(Proxy, FailuresBelowComeAsCallbacks) {
    EXPECT_EQ(m_pProxy->Open(".\\a", 1), 0);
    m_script.m_fault = [](const std::string& strCall, int) {
        return strCall[0] == 'W' ? 4003 : strCall[0] == 'R' ? 4006 : strCall[0] == 'C' ? 4001 : 0;
    };
    EXPECT_EQ(Append("lost"), 0);
    EXPECT_EQ(AsyncRead(5, 9), 0);
    EXPECT_EQ(m_pProxy->Close(), 0);
    EXPECT_EQ(Told(), "Open 0, Write 4003, Data 0, Read 4006, Close 4001");
    EXPECT_EQ(m_trace.TakeErrors(),
              "CFileThreadProxy::ReadData_i->read data error, ret=4006 dwOffset=5 dwLength=9 "
              "this=*\n"
              "CReadEvent::OnEventFire->Read data error, ret=4006 m_dwFileOffset=5 m_dwLength=9 "
              "this=*\n"
              "COpenCloseEvent::OnEventFire->Close File error:.\\a this=*\n");
    EXPECT_EQ(m_lost.Take(), 4U);
}

TEST_F(Proxy, AReadThatReachesTheEndIsShort) {
    WriteBytes("a", Pattern(1000));
    EXPECT_EQ(m_pProxy->Open(".\\a", 0), 0);
    for (const CmUint32 dwOffset : {960U, 1000U, 5000U}) EXPECT_EQ(AsyncRead(dwOffset, 100), 0);
    EXPECT_EQ(Told(), "Open 0, Data 40, Data 0, Data 0");
    EXPECT_EQ(SyncRead(960, 100), Pattern(1000).substr(960));
    EXPECT_EQ(Append("x"), 4010) << "opened for reading";
    EXPECT_EQ(m_trace.TakeErrors(), "");
}

TEST_F(Proxy, AFailedOpenStopsTheFileUntilAnotherOneSucceeds) {
    m_script.FailAll("Open", 4012);
    {
        ThreadGate aGate(Worker());  // the failure isn't known yet: everything is accepted
        EXPECT_EQ(m_pProxy->Open(".\\a", 1), 0);
        EXPECT_EQ(Append("x"), 0);
        EXPECT_EQ(AsyncRead(0, 1), 0);
        EXPECT_EQ(m_pProxy->Close(), 0);
    }
    EXPECT_EQ(Told(), "Open 4012, Write 4006, Data 0, Close 4012");
    EXPECT_EQ(m_script.Take(), "Open .\\a 1\n") << "nothing else reaches the file";
    EXPECT_EQ(m_trace.TakeErrors(),
              "COpenCloseEvent::OnEventFire->Open File error:.\\a this=*\n"
              "COpenCloseEvent::OnEventFire->Close File error:.\\a this=*\n");

    EXPECT_EQ(Append("x"), 4006);
    EXPECT_EQ(AsyncRead(0, 1), 4006);
    EXPECT_EQ(SyncRead(0, 1), "error 4012");
    EXPECT_EQ(m_pProxy->Close(), 4012);
    EXPECT_EQ(Told(), "");
    EXPECT_EQ(m_trace.TakeErrors(), "");

    m_script.m_fault = nullptr;
    EXPECT_EQ(m_pProxy->Open(".\\b", 1), 0);
    EXPECT_EQ(m_pProxy->GetFileName(), ".\\b");
    EXPECT_EQ(Told(), "Open 0");
    EXPECT_EQ(Append("x"), 0);
    EXPECT_EQ(SyncRead(0, 1), "x");
    EXPECT_EQ(m_pProxy->Close(), 0);
    EXPECT_EQ(Told(), "");
}

TEST_F(Proxy, AMissingPartIsTracedAndRefused) {
    const auto aBadLink = static_cast<CCacheFileManager::LinkType>(4);
    const struct {
        bool bRW, bCaller, bFile, bReceiver;
        CCacheFileManager::LinkType aLink;
        std::string strAssertion;
    } aCases[] = {
        {false, true, true, true, aBadLink, c_szAllFour},
        {true, false, true, true, CCacheFileManager::Link_Local, c_szAllFour},
        {true, true, false, true, CCacheFileManager::Link_Local, c_szAllFour},
        {true, true, true, false, CCacheFileManager::Link_Local, c_szAllFour},
        {true, true, true, true, aBadLink,
         "( aLinkType == CCacheFileManager::Link_Primary) || "
         "( aLinkType == CCacheFileManager::Link_Backup) || "
         "( aLinkType == CCacheFileManager::Link_Local)"},
    };
    WriteBytes("a", "there");
    for (const auto& aCase : aCases) {
        Make(aCase.bRW ? Worker() : nullptr, aCase.bCaller ? Caller() : nullptr, aCase.bFile,
             aCase.bReceiver, aCase.aLink);
        EXPECT_EQ(m_trace.TakeErrors(), Assertion(c_szProxy, aCase.strAssertion));
        const bool bThreads = aCase.bRW && aCase.bCaller;
        const CmInt32 lQueued = bThreads ? 0 : 4010;
        EXPECT_EQ(m_pProxy->Open(".\\a", 0), lQueued);
        EXPECT_EQ(AsyncRead(0, 5), lQueued);
        EXPECT_EQ(Append("x"), 4010);
        EXPECT_EQ(m_pProxy->Close(), lQueued);
        EXPECT_EQ(m_pProxy->GetFileName(), ".\\a");
        std::string strTold = "Open@4 0, Data 5";
        std::string strTraced;
        if (!bThreads) {
            strTold = "";
            for (int i = 0; i < 4; ++i) strTraced += Assertion(c_szProxy, c_szThreads);
        } else if (!aCase.bFile) {
            strTold = "Open 4010, Read 4010, Close 4010";
            strTraced = Assertion(c_szProxy, "m_pFileOp.Get( )") +
                        "COpenCloseEvent::OnEventFire->Open File error:.\\a this=*\n" +
                        Assertion(c_szProxy, "m_pFileOp.Get( )&&lpBuffer") +
                        "CReadEvent::OnEventFire->Read data error, ret=4010 m_dwFileOffset=0 "
                        "m_dwLength=5 this=*\n" +
                        Assertion(c_szProxy, "m_pFileOp.Get( )") +
                        "COpenCloseEvent::OnEventFire->Close File error:.\\a this=*\n";
        } else if (!aCase.bReceiver) {
            strTold = "";
            strTraced = Assertion(c_szEvents, "pReceive") + Assertion(c_szEvents, "pReceive") +
                        Assertion(c_szEvents, "m_pReceive.Get( )") +
                        Assertion(c_szEvents, "m_pReceive.Get( )");
        }
        EXPECT_EQ(Told(), strTold);
        EXPECT_EQ(m_trace.TakeErrors(), strTraced);
    }
}

TEST_F(Proxy, ASynchronousReadChecksItsArgumentsAndNeedsNoThread) {
    unsigned char aBuffer[4];
    CmUint32 dwLength = 0;
    const std::string strBuffer = Assertion(c_szProxy, "lpBuffer&&m_pFileOp.Get( )");
    EXPECT_EQ(m_pProxy->ReadData(nullptr, 0, dwLength), 4009);
    EXPECT_EQ(m_pProxy->ReadData(aBuffer, 0, dwLength), 4009);
    EXPECT_EQ(m_trace.TakeErrors(), strBuffer + Assertion(c_szProxy, "dwLength"));
    Make(Worker(), Caller(), false, true);
    m_trace.TakeErrors();
    dwLength = 4;
    EXPECT_EQ(m_pProxy->ReadData(aBuffer, 0, dwLength), 4009);
    EXPECT_EQ(m_trace.TakeErrors(), strBuffer);
    Make(nullptr, nullptr, true, true);
    EXPECT_EQ(m_pProxy->ReadData(aBuffer, 0, dwLength), 4007) << "the file's own answer";
    EXPECT_EQ(m_script.m_thread, std::this_thread::get_id());
}

TEST_F(Proxy, ASynchronousReadSeesEverythingQueuedBeforeIt) {
    EXPECT_EQ(m_pProxy->Open(".\\a", 1), 0);
    EXPECT_EQ(Append("0123456789"), 0);
    EXPECT_EQ(SyncRead(8, 5), "89");
    EXPECT_NE(m_script.m_thread, std::this_thread::get_id());
    EXPECT_EQ(RunOn(Worker(), [this] { return SyncRead(2, 3) == "234" ? 0 : 1; }), 0)
        << "on the worker itself it doesn't wait";

    ThreadGate aGate(Worker());
    EXPECT_EQ(Append("draining"), 0);
    Worker()->Stop(nullptr);
    std::thread aOther([&] { aGate.Open(); });
    EXPECT_EQ(SyncRead(10, 20), "draining") << "the end of a stopped worker is waited for";
    aOther.join();
    EXPECT_EQ(SyncRead(0, 2), "01") << "and afterwards it runs here";
    EXPECT_EQ(m_script.m_thread, std::this_thread::get_id());
    CFileThreadManager::Instance()->StopThread(Worker());
}

TEST_F(Proxy, ARefusedReadLeavesTheBufferWithTheCaller) {
    unsigned char aBuffer[3] = {1, 2, 3};  // freeing it would be seen
    CmUint32 dwLength = 3;
    CmUint32 dwNothing = 0;
    EXPECT_EQ(m_pProxy->AsyncReadData(c_info, nullptr, 0, dwLength), 4009);
    EXPECT_EQ(m_pProxy->AsyncReadData(c_info, aBuffer, 0, dwNothing), 4009);
    CFileThreadManager::Instance()->StopThread(Worker());
    EXPECT_EQ(m_pProxy->AsyncReadData(c_info, aBuffer, 0, dwLength), 4010);
    EXPECT_EQ(m_pProxy->Open(".\\a", 1), 4010);
    EXPECT_EQ(Append("x"), 4010);
    EXPECT_EQ(m_pProxy->Close(), 4010);
    std::string strTraced = Assertion(c_szProxy, "lpBuffer") + Assertion(c_szProxy, "dwLength");
    for (int i = 0; i < 4; ++i) strTraced += Assertion(c_szProxy, "pQueue");
    EXPECT_EQ(m_trace.TakeErrors(), strTraced);
    EXPECT_EQ(m_pProxy->GetFileName(), ".\\a");
    EXPECT_EQ(dwLength, 3U);
    EXPECT_EQ(Told(), "");
}

TEST_F(Proxy, ResultsForADetachedThreadAreDroppedWithTheirBuffers) {
    WriteBytes("a", "there");
    EXPECT_EQ(m_pProxy->Open(".\\a", 0), 0);
    EXPECT_EQ(AsyncRead(0, 5), 0);
    RunOn(Worker(), nullptr);
    m_attached.reset();  // the first results wait
    EXPECT_EQ(AsyncRead(0, 5), 0);
    m_script.FailAll("Close", 4006);
    EXPECT_EQ(m_pProxy->Close(), 0);
    RunOn(Worker(), nullptr);
    EXPECT_EQ(m_trace.TakeErrors(), "COpenCloseEvent::OnEventFire->Close File error:.\\a this=*\n" +
                                        Assertion(c_szProxy, "pQueue"));
    m_attached.emplace();
    EXPECT_EQ(Told(), "") << "another attachment is another thread object";
}

TEST_F(Proxy, DroppingTheLastReferenceCancelsNothing) {
    {
        ThreadGate aGate(Worker());
        EXPECT_EQ(m_pProxy->Open(".\\a", 1), 0);
        EXPECT_EQ(Append("kept"), 0);
        EXPECT_EQ(AsyncRead(1, 9), 0);
        m_pProxy = nullptr;
        EXPECT_FALSE(m_script.m_bGone);
    }
    EXPECT_EQ(Told(), "Open 0, Data 3");
    EXPECT_TRUE(m_script.m_bGone) << "it ends after its last request";
    ExpectFile("a", "kept");
}

TEST_F(Proxy, EventsWithoutTheirTargetRefuseToFire) {
    const auto fire = [](ICmEvent* pEvent) {
        const CmInt32 lResult = pEvent->OnEventFire();
        pEvent->OnDestorySelf();
        return lResult;
    };
    const std::string strProxy =
        Assertion(c_szEvents, "pAsyncFileOp") + Assertion(c_szEvents, "m_pAsyncFileOp.Get( )");
    const std::string strReceiver =
        Assertion(c_szEvents, "pReceive") + Assertion(c_szEvents, "m_pReceive.Get( )");
    EXPECT_EQ(fire(new COpenCloseEvent(nullptr, ".\\a", 1, 1)), 4010);
    EXPECT_EQ(m_trace.TakeErrors(), strProxy);
    EXPECT_EQ(fire(new CWriteEvent(nullptr, 0, "x")), 4010);
    EXPECT_EQ(m_trace.TakeErrors(), strProxy);
    EXPECT_EQ(fire(new CReadEvent(nullptr, new unsigned char[1], 1, 0, c_info)), 4010);
    EXPECT_EQ(m_trace.TakeErrors(), strProxy);
    EXPECT_EQ(fire(new CFileDataEvent(nullptr, new unsigned char[1], 1, c_info)), 4010);
    EXPECT_EQ(m_trace.TakeErrors(), strReceiver);
    EXPECT_EQ(fire(new CFileStatusEvent(
                  nullptr, {CCacheFileManager::Link_Local, CCacheFileManager::Op_Open, 0})),
              4010);
    EXPECT_EQ(m_trace.TakeErrors(), strReceiver);
}
