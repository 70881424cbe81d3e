#include <thread>

#include "async/FileThreadManager.h"
#include "tests/support/Player.h"

using Proxy = HostTest;

TEST_F(Proxy, ASynchronousReadSeesEverythingQueuedBeforeIt) {
    CFileThreadManager* const pThreads = CFileThreadManager::Instance();
    Player aPlayer(Async, &m_sink, Player::ForFiles);
    EXPECT_EQ(aPlayer.OpenFile("a", c_aStream, 1), 0);
    const CCmString strBlock = Pattern(40'000);  // not gathered, but written
    EXPECT_EQ(aPlayer.Write(c_aInfo, strBlock, c_dwEnd), 0);
    EXPECT_EQ(aPlayer.SyncRead(c_aInfo, 39'990, 10), strBlock.substr(39'990));
    ThreadGate aGate(Worker());
    EXPECT_EQ(aPlayer.Write(c_aInfo, "queued", 40'000), 0);
    Worker()->Stop(nullptr);
    std::thread aOther([&] { aGate.Open(); });
    EXPECT_EQ(aPlayer.SyncRead(c_aInfo, 40'000, 6), "queued") << "a stopped worker is waited for";
    aOther.join();
    pThreads->StopThread(Worker());
    unsigned char aBuffer[3];  // on the stack: freeing it would crash
    EXPECT_EQ(aPlayer->ReadData(c_aInfo, aBuffer, 0, 3), 4010);
    EXPECT_EQ(m_trace.TakeErrors(), Assertion("async/FileThreadProxy.cpp", "pQueue") +
                                        "CPlayFileHandler::ReadData->Read data error4010 this=*\n");
    Settle();
    EXPECT_EQ(m_sink.Take(), "Open 0");
}
