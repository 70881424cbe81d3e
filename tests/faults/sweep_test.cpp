#include <cerrno>
#include <fstream>

#include "capi/cachefile_c.h"
#include "fileop/FileOperation.h"
#include "tests/faults/Faults.h"
#include "tests/faults/Session.h"
#include "tests/support/Player.h"

void WriteSession(Session& aHost);
void PlayFilesSession(Session& aHost);
void PlayContainerSession(Session& aHost);
void PackSession(Session& aHost);
void CHostSession(Session& aHost);

namespace {

struct Case {
    const char* lpName;
    void (*pSession)(Session&);
    Mode aMode;
    const char* lpCalls;  // the calls of the system that it makes, in the order of Faults::Call

    friend void PrintTo(const Case& aCase, std::ostream* pOut) { *pOut << aCase.lpName; }
};

constexpr char c_szWrites[] = "openat fstat fdopen faccessat mkdirat lseek write fflush fclose ";
constexpr char c_szPlays[] = "openat fstat fdopen faccessat lseek write pread fflush fclose ";
constexpr char c_szReads[] = "openat fstat fdopen pread fclose ";
constexpr char c_szPacks[] = "openat fstat fdopen lseek write read pread fsync fclose rename ";
constexpr char c_szC[] =
    "openat fstat fdopen faccessat mkdirat lseek write pread fflush fsync fclose rename ";

const Case c_aCases[] = {
    {"WriteSync", WriteSession, Sync, c_szWrites},
    {"WriteAsync", WriteSession, Async, c_szWrites},
    {"PlayFilesSync", PlayFilesSession, Sync, c_szPlays},
    {"PlayFilesAsync", PlayFilesSession, Async, c_szPlays},
    {"PlayContainerSync", PlayContainerSession, Sync, c_szReads},
    {"PlayContainerAsync", PlayContainerSession, Async, c_szReads},
    {"Pack", PackSession, Sync, c_szPacks},
    {"CHostSync", CHostSession, Sync, c_szC},
    {"CHostAsync", CHostSession, Async, c_szC},
};

/// Whether the library repeats a call that fails with this error.
bool IsRepeated(Faults::Call aCall, int nErrno) {
    return nErrno == EINTR && aCall != Faults::Call_fclose && aCall != Faults::Call_fdopen &&
           aCall != Faults::Call_fflush;
}

/// The codes that are allowed when a system call fails with this error.
std::set<CmInt32> CodesOf(Mode aMode, Faults::Call aCall, int nErrno) {
    if (IsRepeated(aCall, nErrno)) return {};
    std::set<CmInt32> aCodes{4006, 4010};
    const bool bTransfers =
        aCall == Faults::Call_write || aCall == Faults::Call_read || aCall == Faults::Call_pread;
    if (nErrno == ENOSPC || (nErrno == 0 && aCall == Faults::Call_write)) aCodes.insert(4003);
    // In asynchronous mode a write after a failed open returns 4006.
    const bool bFillsDisk = aCall == Faults::Call_write || aCall == Faults::Call_mkdirat;
    if (aMode == Sync && bFillsDisk && aCodes.count(4003)) aCodes.erase(4006);
    if (nErrno == EACCES && !bTransfers) aCodes.insert({4004, 4012});
    return aCodes;
}

/// Repeats a session in an empty directory, each time with another failure.
class Sweep : public testing::TestWithParam<Case> {
 protected:
    void Run(const std::set<CmInt32>& aCodes, bool bLowMemory) {
        std::filesystem::remove_all("kvr2");
        Session aHost(GetParam().aMode, aCodes, bLowMemory);
        GetParam().pSession(aHost);
    }

    /// Returns the number of allocations and open files that a session leaves.
    std::size_t CountLeft(const std::set<CmInt32>& aCodes, bool bLowMemory) {
        const auto count = [] {
            return Memory::InUse() + static_cast<std::size_t>(CountOpenFiles());
        };
        const std::size_t nBefore = count();
        Run(aCodes, bLowMemory);
        return HasFailure() ? 0 : count() - nBefore;  // reporting a failure takes memory too
    }

    /// Makes the 1st, 2nd, 3rd ... call of a kind fail, until a session has no failure. After each
    /// session with a failure, another session must succeed.
    template <class Arm, class Disarm>
    void SweepAll(const std::set<CmInt32>& aCodes, bool bLowMemory, Arm aArm, Disarm aDisarm) {
        bool bFailed = true;
        for (int nNth = 1; bFailed && !HasFailure(); ++nNth) {
            SCOPED_TRACE(nNth);
            aArm(nNth);
            const std::size_t nLeft = CountLeft(aCodes, bLowMemory);
            bFailed = aDisarm() > 0;
            EXPECT_LE(nLeft, m_nLeft);
            if (bFailed) Run({}, false);
            m_nSessions += bFailed;
        }
    }

    void SetUp() override {
        Run({}, false);
        m_nLeft = CountLeft({}, false);  // each ended thread leaves an object
    }
    void TearDown() override { std::cout << m_nSessions << " sessions with a failure\n"; }

    int m_nSessions = 0;  // with a failure

 private:
    const Memory::Scope m_outside{false};
    TestDir m_dir;
    std::size_t m_nLeft = 0;
};

INSTANTIATE_TEST_SUITE_P(Sessions, Sweep, testing::ValuesIn(c_aCases),
                         [](const auto& aInfo) { return std::string(aInfo.param.lpName); });

}  // namespace

TEST_P(Sweep, OfSystemCallFailures) {
    std::string strCalls;
    for (int nCall = 0; nCall < Faults::Call_Count; ++nCall) {
        const auto aCall = static_cast<Faults::Call>(nCall);
        const int nBefore = m_nSessions;
        for (const int nErrno : {ENOSPC, EIO, EACCES, EINTR, 0})
            for (const bool bForEver : {false, true}) {
                if (bForEver && IsRepeated(aCall, nErrno)) continue;
                SCOPED_TRACE(std::string(Faults::NameOf(aCall)) + ", errno " +
                             std::to_string(nErrno) + (bForEver ? ", for ever" : ""));
                SweepAll(
                    CodesOf(GetParam().aMode, aCall, nErrno), false,
                    [&](int nNth) { Faults::Arm(aCall, nNth, bForEver, nErrno); }, Faults::Disarm);
            }
        if (m_nSessions > nBefore) strCalls += Faults::NameOf(aCall) + std::string(" ");
    }
    EXPECT_EQ(strCalls, GetParam().lpCalls) << "the calls that are redirected and made";
}

TEST_P(Sweep, OfAllocationFailures) {
    for (const bool bForEver : {false, true}) {
        SCOPED_TRACE(bForEver ? "for ever" : "once");
        SweepAll(
            {4006, 4010, 4011}, true, [&](int nNth) { Memory::Arm(nNth, bForEver); },
            Memory::Disarm);
    }
}

TEST(CInterfaceFault, WithoutMemoryReturnsOutOfMemory) {
    cachefile_packer* pPacker = nullptr;
    Memory::Arm(1, true);
    const std::int32_t lHome = cachefile_set_home_dir("a directory with a name that takes memory");
    const std::int32_t lPacker = cachefile_packer_create(&pPacker);
    Memory::Disarm();
    EXPECT_EQ(lHome, CACHEFILE_ERR_OUT_OF_MEMORY);
    EXPECT_EQ(lPacker, CACHEFILE_ERR_OUT_OF_MEMORY);
}

TEST(OpenFault, OpeningIsRepeatedWhileAFileIsLeased) {
    const TestDir aDir;
    for (const int bWrite : {0, 1}) {
        WriteBytes("leased", "bytes");
        const CRefPtr<IFileOperation> pFile = CFileOperationFactory::Instance()->CreateLocalFile(0);
        Faults::Arm(Faults::Call_openat, 1, false, EWOULDBLOCK);
        EXPECT_EQ(pFile->Open(".\\leased", bWrite), 0);
        EXPECT_EQ(Faults::Disarm(), 1);
        ExpectFile("leased", bWrite ? "" : "bytes");
    }
}

using PlayFault = HostTest;

TEST_F(PlayFault, AFailureOnTheWorkerIsTracedAndReported) {
    Player aPlayer(Async, &m_sink, Player::ForFiles);
    EXPECT_EQ(aPlayer.OpenFile("a", c_aStream, 1), 0);
    EXPECT_EQ(aPlayer.Write(c_aInfo, Pattern(100), 0), 0);
    Settle();
    const std::pair<Faults::Call, std::function<CmInt32()>> aCases[] = {
        {Faults::Call_write, [&] { return aPlayer.Write(c_aInfo, "lost", 0); }},
        {Faults::Call_pread, [&] { return aPlayer.Read(c_aInfo, 5, 9); }},
        {Faults::Call_fclose, [&] { return aPlayer->CloseAllRecordFiles(); }}};
    for (const auto& [aCall, makeRequest] : aCases) {
        Faults::Arm(aCall, 1, false, EIO);
        EXPECT_EQ(makeRequest(), 0);
        Settle();
        EXPECT_EQ(Faults::Disarm(), 1);
    }
    EXPECT_EQ(m_sink.Take(), "Open 0, Write 4006, Data 0, Read 4006, Close 4006");
    EXPECT_EQ(m_lost.Take(), 4U);
    EXPECT_EQ(
        m_trace.TakeErrors(),
        "CLocalFile::WriteData->Write data error=5 m_hFD=* this=*\n"
        "CLocalFile::ReadData->Read data error=5 dwLength=9 aSize=4 this=*\n"
        "CFileThreadProxy::ReadData_i->read data error, ret=4006 dwOffset=5 dwLength=9 this=*\n"
        "CReadEvent::OnEventFire->Read data error, ret=4006 m_dwFileOffset=5 m_dwLength=9 "
        "this=*\n"
        "CLocalFile::Close->Close File error=5 m_hFD=* this=*\n"
        "COpenCloseEvent::OnEventFire->Close File error:.\\kvr2\\7\\a this=*\n");
}

using Fault = HostModeTest;
INSTANTIATE_BOTH_MODES(Fault);

TEST(PackFault, AFailedDirectorySyncIsReturnedAndTheFileKeepsItsName) {
    const TestDir aDir;
    const struct {
        int nErrno;
        CmInt32 lResult;
    } aCases[] = {{EIO, 4006}, {ENOSPC, 4003}, {EINVAL, 0}, {ENOTSUP, 0}};
    for (const auto& aCase : aCases) {
        CContainerWriter aWriter;
        EXPECT_EQ(AddStream(aWriter, {3, 2, 1003, 0}, "123"), 0);
        Faults::Arm(Faults::Call_fsync, 2, false, aCase.nErrno);
        EXPECT_EQ(aWriter.Write(".\\c"), aCase.lResult) << aCase.nErrno;
        EXPECT_EQ(Faults::Disarm(), 1);
        EXPECT_EQ(std::filesystem::file_size("c"), 24U + 32 + 3);
        EXPECT_FALSE(Exists("c.partial"));
        std::filesystem::remove("c");
    }
}

TEST_P(Fault, APartialAppendIsTruncatedUnlessOthersHaveAppended) {
    constexpr char c_szStays[] = "CLocalFile::WriteData->A part of the append stays, error=";
    const CCmString strBlock = Pattern(40'000);
    const CCmString strHalf = strBlock.substr(0, 20'000);
    Recording aRecording(GetParam(), &m_sink);
    const struct {
        const char* lpName;
        CmUint32 dwOffset;
        std::function<void()> aMeanwhile;
        CCmString strFile;
        std::string strTrace;  // in addition to the lines of the failed write
    } aCases[] = {
        {"undone", c_dwEnd, nullptr, "before", ""},
        {"positioned", 3, nullptr, "bef" + strHalf, ""},
        {"other", c_dwEnd, [&] { std::ofstream("kvr2/7/other", std::ios::app) << "other"; },
         "before" + strHalf + "other", c_szStays + std::string("0 m_hFD=* this=*\n")},
        {"uncut", c_dwEnd, [] { Faults::Arm(Faults::Call_ftruncate, 1, false, EIO); },
         "before" + strHalf, c_szStays + std::string("5 m_hFD=* this=*\n")},
    };
    for (const auto& aCase : aCases) {
        SCOPED_TRACE(aCase.lpName);
        const CmUint32 dwHandle = aRecording.Open(aCase.lpName);
        EXPECT_EQ(aRecording.Write(dwHandle, "before"), 0);
        aRecording->FlushData(dwHandle);
        Settle();
        Faults::RunBeforeFailure(aCase.aMeanwhile);
        Faults::Arm(Faults::Call_write, 1, false, ENOSPC);
        EXPECT_EQ(aRecording.Write(dwHandle, strBlock, aCase.dwOffset),
                  GetParam() == Sync ? 4003 : 0);
        Settle();
        Faults::Disarm();
        EXPECT_EQ(
            m_trace.TakeErrors(),
            "CLocalFile::WriteData->Write data error=28 m_hFD=* this=*\n" + aCase.strTrace +
                (GetParam() == Sync ? "CWriteFileHandler::WriteData->Write Data error=4003 this=*\n"
                                    : ""));
        ExpectFile(Recording::PathOf(aCase.lpName), aCase.strFile);
        EXPECT_EQ(aRecording.Write(dwHandle, strBlock), 0) << "the next write succeeds";
        EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
        Settle();
        ExpectFile(Recording::PathOf(aCase.lpName), aCase.strFile + strBlock);
    }
}
