#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "fileop/FileOperation.h"
#include "tests/support/HostTest.h"

using Disk = HostModeTest;
INSTANTIATE_BOTH_MODES(Disk);

TEST_P(Disk, AFullDiskIsToldByTheCallThatHandsBytesDownOrTracedAndCounted) {
    const bool bAsync = GetParam() == Async;
    Recording aRecording(GetParam(), &m_sink);
    aRecording->SetHomeDir("\\dev");
    const CmUint32 dwHandle = aRecording.Open("full");
    Settle();
    EXPECT_EQ(m_sink.Take(), bAsync ? "Open 0" : "");
    const auto expectFailure = [&](std::uint64_t qwLost, const std::string& strTraced) {
        Settle();
        EXPECT_EQ(m_sink.Take(), bAsync ? "Write 4003" : "");
        EXPECT_EQ(m_trace.TakeErrors(),
                  "CLocalFile::WriteData->Write data error=28 m_hFD=* this=*\n" + strTraced);
        EXPECT_EQ(m_lost.Take(), qwLost);
    };
    const std::string strRefused =
        bAsync ? "" : "CWriteFileHandler::WriteData->Write Data error=4003 this=*\n";
    EXPECT_EQ(aRecording.Write(dwHandle, "1000"), 0);
    EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000)), bAsync ? 0 : 4003);
    expectFailure(bAsync ? 40'004 : 4, strRefused);
    EXPECT_EQ(aRecording.Write(dwHandle, "positioned", 10), bAsync ? 0 : 4003);
    expectFailure(bAsync ? 10 : 0, strRefused);
    EXPECT_EQ(aRecording.Write(dwHandle, "flushed"), 0);
    aRecording->FlushData(dwHandle);
    expectFailure(7, "");
    EXPECT_EQ(aRecording.Write(dwHandle, "closed"), 0);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    expectFailure(6, "");
}

TEST_P(Disk, AnAppendThatAFullDiskRefusedIsInTheFileOnceAfterAnotherTry) {
    struct Mount {
        ~Mount() {
            if (nErrno == 0) ::umount2("small", MNT_DETACH);
        }
        const int nErrno = ::mount("tmpfs", "small", "tmpfs", 0, "size=1m") == 0 ? 0 : errno;
    };
    std::filesystem::create_directory("small");
    const Mount aMount;
    if (aMount.nErrno != 0) GTEST_SKIP() << "no tmpfs here: " << std::strerror(aMount.nErrno);

    WriteBytes("small/filler", CCmString(200'000, 'f'));
    Recording aRecording(GetParam(), &m_sink);
    aRecording->SetHomeDir(".\\small");
    const CmUint32 dwHandle = aRecording.Open("a");
    CCmString strModel;
    int nRefused = 0;
    for (unsigned i = 0; i < 22; ++i) {
        const CCmString strPiece = Pattern(50'000, i);
        CmInt32 lResult = aRecording.Write(dwHandle, strPiece);
        Settle();
        if (m_sink.Take().find("Write 4003") != std::string::npos) lResult = 4003;
        if (lResult == 4003) {
            ASSERT_EQ(++nRefused, 1);
            ExpectFile("small/a", strModel);
            std::filesystem::remove("small/filler");
            lResult = aRecording.Write(dwHandle, strPiece);
        }
        EXPECT_EQ(lResult, 0);
        strModel += strPiece;
        if (strModel.size() > 900'000) break;
    }
    EXPECT_EQ(nRefused, 1);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    CacheFileShutdown();
    ExpectFile("small/a", strModel);
}

TEST(SpecialFile, WhatCantHoldBytesIsRefusedWithoutWaiting) {
    TestDir aDir;
    TraceLog aTrace;
    ASSERT_EQ(::mkfifo("fifo", 0600), 0);
    std::filesystem::create_directory("dir");
    WriteBytes("file", "x");
    const struct {
        const char* lpPath;
        int nErrno;
    } aCases[] = {{".\\fifo", EINVAL}, {".\\dir", EISDIR}, {".\\file\\in it", ENOTDIR}};
    for (const auto& aCase : aCases)
        for (const int bWrite : {0, 1}) {
            SCOPED_TRACE(aCase.lpPath);
            const CRefPtr<IFileOperation> pFile =
                CFileOperationFactory::Instance()->CreateLocalFile(0);
            EXPECT_EQ(pFile->Open(aCase.lpPath, bWrite), 4006);
            EXPECT_EQ(aTrace.TakeErrors(),
                      std::string("CLocalFile::Open->Open ") + (bWrite ? "write" : "reading only") +
                          " File Error=" + std::to_string(aCase.nErrno) + " this=*\n");
        }
}

namespace {

/// A process that holds a lease on a file and releases it when another process opens the file.
class LeaseHolder {
 public:
    explicit LeaseHolder(const char* lpPath) {
        int aReady[2];
        if (::pipe(aReady) != 0) return;
        m_nProcess = ::fork();
        if (m_nProcess == 0) Hold(lpPath, aReady[1]);
        ::close(aReady[1]);
        char cReady = 0;
        m_bHeld = ::read(aReady[0], &cReady, 1) == 1;
        ::close(aReady[0]);
    }
    ~LeaseHolder() {
        if (m_nProcess <= 0) return;
        ::kill(m_nProcess, SIGKILL);
        ::waitpid(m_nProcess, nullptr, 0);
    }
    LeaseHolder(const LeaseHolder&) = delete;
    LeaseHolder& operator=(const LeaseHolder&) = delete;

    bool IsHeld() const { return m_bHeld; }

 private:
    [[noreturn]] static void Hold(const char* lpPath, int nReady) {
        sigset_t aAsked;
        sigemptyset(&aAsked);
        sigaddset(&aAsked, SIGIO);
        ::sigprocmask(SIG_BLOCK, &aAsked, nullptr);
        const int nFile = ::open(lpPath, O_RDONLY | O_CLOEXEC);
        if (::fcntl(nFile, F_SETLEASE, F_WRLCK) != 0 || ::write(nReady, "r", 1) != 1) ::_exit(1);
        int nSignal = 0;
        ::sigwait(&aAsked, &nSignal);
        ::usleep(20'000);  // the other process waits during this time
        ::_exit(0);
    }

    pid_t m_nProcess = -1;
    bool m_bHeld = false;
};

}  // namespace

TEST(SpecialFile, AFileUnderALeaseIsWaitedFor) {
    TestDir aDir;
    TraceLog aTrace;
    for (const int bWrite : {0, 1}) {
        WriteBytes("leased", "bytes");
        const LeaseHolder aHolder("leased");
        if (!aHolder.IsHeld()) GTEST_SKIP() << "no leases here";
        const CRefPtr<IFileOperation> pFile = CFileOperationFactory::Instance()->CreateLocalFile(0);
        EXPECT_EQ(pFile->Open(".\\leased", bWrite), 0);
        ExpectFile("leased", bWrite ? "" : "bytes");
    }
    EXPECT_EQ(aTrace.TakeErrors(), "");
}

TEST(SpecialFile, AReadOrSeekThatFailsIsTraced) {
    TraceLog aTrace;
    CFileOperationFactory* const pFactory = CFileOperationFactory::Instance();
    const CRefPtr<IFileOperation> pUnreadable = pFactory->CreateLocalFile(0);
    const CRefPtr<IFileOperation> pUnseekable = pFactory->CreateLocalFile(0);
    if (pUnreadable->Open("\\proc\\self\\mem", 0) || pUnseekable->Open("\\dev\\ptmx", 1))
        GTEST_SKIP() << "no /proc/self/mem or /dev/ptmx here";
    CmUint32 dwLength = 5;
    unsigned char aBuffer[5];
    EXPECT_EQ(pUnreadable->ReadData(aBuffer, 0, dwLength), 4006);
    EXPECT_EQ(pUnseekable->ReadData(aBuffer, 4294967295, dwLength), 4006);
    EXPECT_EQ(pUnseekable->WriteData("x", 1), 4006);
    EXPECT_EQ(pUnseekable->WriteData("x", c_dwEnd), 4006);
    const CRefPtr<IFileOperation> pClosed = pFactory->CreateLocalFile(0);
    const int nFile = ::dup(0);
    ::close(nFile);  // the next open gets this descriptor
    ASSERT_EQ(pClosed->Open("\\dev\\null", 0), 0);
    ::close(nFile);
    EXPECT_EQ(pClosed->ReadData(aBuffer, 7, dwLength), 4006);
    EXPECT_EQ(pClosed->Close(), 4006);
    EXPECT_EQ(dwLength, 5U);
    EXPECT_EQ(aTrace.TakeErrors(),
              "CLocalFile::ReadData->Read data error=5 dwLength=5 aSize=0 this=*\n"
              "CLocalFile::ReadData->Seek fileoffset error=29 dwOffset=4294967295 this=*\n"
              "CLocalFile::WriteData->Seek fileoffset error=29 dwOffset=1 this=*\n"
              "CNFSFile::WriteData->Seek to file end error=29 this=*\n"
              "CLocalFile::ReadData->Seek fileoffset error=9 dwOffset=7 this=*\n"
              "CLocalFile::Close->Close File error=9 m_hFD=* this=*\n");
}
