#include "tests/support/HostTest.h"

#include <utility>

#include "async/FileThreadManager.h"

HostTest::HostTest() {
    m_attached.emplace();
    EXPECT_EQ(m_attached->GetResult(), 0);
}

HostTest::~HostTest() {
    CacheFileShutdown();
    CCacheFileManager::SetPendingLimit(c_qwNoLimit);
    CCacheFileManager::SetGatherAge(0);
    CCacheFileManager::SetRoomWakeUp(0);
    CCacheFileManager::Instance().SetTempHomeDir(".\\kvr2\\");
}

CRefPtr<ACmThread> HostTest::Worker() {
    return CFileThreadManager::Instance()->GetPrimaryNFSThread();
}

CRefPtr<ICmEventQueue> HostTest::HostQueue() {
    return CCmThreadManager::Instance()->GetThread(3)->GetEventQueue();
}

void HostTest::Settle() {
    CmUint32 dwRun = 0;
    do {
        if (const CRefPtr<ACmThread> pWorker = Worker()) RunOn(pWorker, nullptr);
        CCmCallerThread::RunPending(&dwRun);
    } while (dwRun > 0);
}

Recording::Recording(Mode aMode, IFileOpSink* pSink)
    : m_pHandler(CCacheFileManager::Instance().CreateWriteFileHandler(7, aMode)) {
    EXPECT_EQ(m_pHandler->Initialize(pSink), 0);
}

CmUint32 Recording::Open(const CCmString& strName) {
    CmUint32 dwHandle = 0;
    EXPECT_EQ(m_pHandler->OpenWritingFile(strName, dwHandle), 0) << strName;
    EXPECT_NE(dwHandle, 0U);
    return dwHandle;
}

CmInt32 Recording::TryOpen(const CCmString& strName) {
    CmUint32 dwHandle = 99;
    const CmInt32 lResult = m_pHandler->OpenWritingFile(strName, dwHandle);
    EXPECT_EQ(lResult == 0, dwHandle != 0) << "a failed open hands out no handle";
    return lResult;
}

CmInt32 Recording::Write(CmUint32 dwHandle, const CCmString& strBytes, CmUint32 dwOffset) {
    return m_pHandler->WriteData(dwHandle, BytesOf(strBytes),
                                 static_cast<CmUint32>(strBytes.size()), dwOffset);
}

void Recording::Destroy() {
    if (CWriteFileHandler* const pHandler = std::exchange(m_pHandler, nullptr)) pHandler->Destroy();
}

CmInt32 AddStream(CContainerWriter& aWriter, const tagFileDescriber& aDescriber,
                  const CCmString& strBytes) {
    return aWriter.AddStream(aDescriber, BytesOf(strBytes), static_cast<CmUint32>(strBytes.size()));
}

void ExpectFile(const CCmString& strPath, const CCmString& strBytes) {
    EXPECT_EQ(Difference(ReadBytes(strPath), strBytes), "") << strPath;
}
