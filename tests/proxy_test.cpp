#include <thread>

#include "async/FileEvents.h"
#include "async/FileThreadManager.h"
#include "tests/support/FileLink.h"
#include "tests/support/HostTest.h"

namespace {

const tagDataInfo c_info{3, 1003, 77, 4};

std::string InProxy(const std::string& str) { return Assertion("async/FileThreadProxy.cpp", str); }

/// A proxy on top of a scripted link and a local file, with a log of the handler's callbacks.
class Proxy : public HostTest {
 protected:
    Proxy() { Make(Worker(), Caller(), true, true, CCacheFileManager::Link_Local); }
    ~Proxy() override {
        m_pProxy = nullptr;
        CacheFileShutdown();  // no request may run after the script is destroyed
    }

    static CRefPtr<ACmThread> Caller() { return CFileThreadManager::Instance()->GetCallerThread(); }

    void Make(const CRefPtr<ACmThread>& pRW, const CRefPtr<ACmThread>& pCaller, bool bFile,
              bool bReceiver, CCacheFileManager::LinkType aLink) {
        CFileOperationFactory* const pFactory = CFileOperationFactory::Instance();
        m_pProxy = pFactory->CreateFileThreadProxy(
            pRW.Get(), pCaller.Get(),
            bFile ? new FileLink(m_script, pFactory->CreateLocalFile(0)) : nullptr,
            bReceiver ? new TestReceiver(m_sink) : nullptr, aLink);
    }

    CmInt32 Append(const CCmString& strData) { return m_pProxy->WriteData(strData, c_dwEnd); }

    /// Requests a read into a new buffer, and frees the buffer if the read is refused.
    CmInt32 AsyncRead(CmUint32 dwOffset, CmUint32 dwLength) {
        auto* const lpBuffer = new unsigned char[dwLength];
        CmUint32 dwWanted = dwLength;
        const CmInt32 lResult = m_pProxy->AsyncReadData(c_info, lpBuffer, dwOffset, dwWanted);
        EXPECT_EQ(dwWanted, dwLength);
        if (lResult != 0) delete[] lpBuffer;
        return lResult;
    }

    /// Reads synchronously and returns the bytes, or "error CODE".
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

TEST_F(Proxy, FailuresBelowComeAsCallbacks) {
    EXPECT_EQ(m_pProxy->Open(".\\a", 1), 0);
    m_script.Fail([](const std::string& strCall, int) {
        return strCall[0] == 'W' ? 4003 : strCall[0] == 'R' ? 4006 : strCall[0] == 'C' ? 4001 : 0;
    });
    RunOn(Worker(), nullptr);
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

TEST_F(Proxy, ASynchronousReadSeesEverythingQueuedBeforeIt) {
    EXPECT_EQ(m_pProxy->Open(".\\a", 1), 0);
    EXPECT_EQ(Append("0123456789"), 0);
    EXPECT_EQ(SyncRead(8, 5), "89");
    EXPECT_NE(m_script.m_thread, std::this_thread::get_id());
    EXPECT_EQ(RunOn(Worker(), [this] { return SyncRead(2, 3) == "234"; }), 1) << "in place there";

    ThreadGate aGate(Worker());
    EXPECT_EQ(Append("draining"), 0);
    Worker()->Stop(nullptr);
    std::thread aOther([&] { aGate.Open(); });
    EXPECT_EQ(SyncRead(10, 20), "draining") << "the end of a stopped worker is waited for";
    aOther.join();
    EXPECT_EQ(m_script.m_thread, std::this_thread::get_id()) << "and then it runs here";
    CFileThreadManager::Instance()->StopThread(Worker());
}

TEST_F(Proxy, ARefusedReadLeavesTheBufferWithTheCaller) {
    unsigned char aBuffer[3] = {1, 2, 3};  // on the stack: freeing it would crash
    CmUint32 dwLength = 3;
    CmUint32 dwNothing = 0;
    EXPECT_EQ(m_pProxy->AsyncReadData(c_info, nullptr, 0, dwLength), 4009);
    EXPECT_EQ(m_pProxy->AsyncReadData(c_info, aBuffer, 0, dwNothing), 4009);
    EXPECT_EQ(m_pProxy->ReadData(nullptr, 0, dwNothing), 4009);
    EXPECT_EQ(m_pProxy->ReadData(aBuffer, 0, dwNothing), 4009);
    CFileThreadManager::Instance()->StopThread(Worker());
    EXPECT_EQ(m_pProxy->AsyncReadData(c_info, aBuffer, 0, dwLength), 4010);
    EXPECT_EQ(m_pProxy->Open(".\\a", 1), 4010);
    EXPECT_EQ(m_trace.TakeErrors(),
              InProxy("lpBuffer") + InProxy("dwLength") + InProxy("lpBuffer&&m_pFileOp.Get( )") +
                  InProxy("dwLength") + InProxy("pQueue") + InProxy("pQueue"));
    EXPECT_EQ(Told(), "");
}
