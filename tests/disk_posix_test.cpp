#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "fileop/FileOperation.h"
#include "tests/support/HostTest.h"

using Disk = HostModeTest;
INSTANTIATE_BOTH_MODES(Disk);

TEST_P(Disk, AFullDiskIsToldByTheCallThatHandsBytesDownOrTracedAndCounted) {
    const bool bAsync = GetParam() == Async;
    const std::string strFull = "CLocalFile::WriteData->Write data error=28 m_hFD=* this=*\n";
    Recording aRecording(GetParam(), &m_sink);
    aRecording->SetHomeDir("\\dev");
    const CmUint32 dwHandle = aRecording.Open("full");
    const auto expect = [&](CmInt32 lResult, std::uint64_t qwAccepted, const std::string& strMore) {
        Settle();
        EXPECT_EQ(m_sink.Take(), bAsync ? "Write 4003" : "");
        EXPECT_EQ(m_trace.TakeErrors(), strFull + strMore);
        EXPECT_EQ(lResult, 0);
        EXPECT_EQ(m_lost.Take(), qwAccepted);
    };
    Settle();
    EXPECT_EQ(m_sink.Take(), bAsync ? "Open 0" : "");
    const CmInt32 lFull = bAsync ? 0 : 4003;
    const std::string strRefused =
        bAsync ? "" : "CWriteFileHandler::WriteData->Write Data error=4003 this=*\n";

    EXPECT_EQ(aRecording.Write(dwHandle, "1000"), 0);
    CmInt32 lResult = aRecording.Write(dwHandle, Pattern(40'000));
    expect(lResult - lFull, bAsync ? 40'004 : 4, strRefused);
    lResult = aRecording.Write(dwHandle, "positioned", 10);
    expect(lResult - lFull, bAsync ? 10 : 0, strRefused);
    EXPECT_EQ(aRecording.Write(dwHandle, "flushed"), 0);
    aRecording->FlushData(dwHandle);
    expect(0, 7, "");
    EXPECT_EQ(aRecording.Write(dwHandle, "closed"), 0);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    expect(0, 6, "");
}

TEST_P(Disk, WhatWasWrittenBeforeTheDiskWasFullStays) {
    struct Mount {
        explicit Mount(const char* lp)
            : m_nErrno(::mount("tmpfs", lp, "tmpfs", 0, "size=1m") == 0 ? 0 : errno), m_lp(lp) {}
        ~Mount() {
            if (m_nErrno == 0) ::umount2(m_lp, MNT_DETACH);
        }
        const int m_nErrno;
        const char* const m_lp;
    };
    std::filesystem::create_directory("small");
    const Mount aMount("small");
    if (aMount.m_nErrno != 0) GTEST_SKIP() << "no tmpfs here: " << std::strerror(aMount.m_nErrno);

    Recording aRecording(GetParam(), &m_sink);
    aRecording->SetHomeDir(".\\small");
    const CmUint32 dwHandle = aRecording.Open("a");
    CCmString strAll;
    CmInt32 lResult = 0;
    while (lResult == 0 && m_sink.Take().find("Write") == std::string::npos) {
        ASSERT_LT(strAll.size(), 4U << 20);
        const CCmString strPiece = Pattern(50'000, static_cast<unsigned>(strAll.size()));
        lResult = aRecording.Write(dwHandle, strPiece);
        strAll += strPiece;
        Settle();
    }
    EXPECT_EQ(lResult, GetParam() == Async ? 0 : 4003);
    EXPECT_EQ(aRecording->GetFileStatus(CCacheFileManager::Link_Local),
              GetParam() == Async ? 4003 : 0);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    CacheFileShutdown();
    const CCmString strKept = ReadBytes("small/a");
    EXPECT_GE(strKept.size(), strAll.size() - 50'000) << "every block before the last is there";
    ExpectFile("small/a", strAll.substr(0, strKept.size()));
}

TEST_P(Disk, AbsoluteDirectoriesAreMadeWithBackslashesAndMustExistWithSlashes) {
    const bool bAsync = GetParam() == Async;
    const auto tell = [&](CmInt32 l) { return bAsync ? "Open " + std::to_string(l) : ""; };
    Recording aRecording(GetParam(), &m_sink);
    aRecording->SetHomeDir(LibraryForm(m_dir.Path()) + "\\new\\deep");
    EXPECT_EQ(aRecording.TryOpen("a"), 0);
    Settle();
    EXPECT_EQ(m_sink.Take(), tell(0));
    EXPECT_TRUE(Exists("new/deep/a"));
    aRecording->SetHomeDir(m_dir.Path().string() + "/other/deep");
    EXPECT_EQ(aRecording.TryOpen("a"), bAsync ? 0 : 4001);
    Settle();
    EXPECT_EQ(m_sink.Take(), tell(4001));
    EXPECT_FALSE(Exists("other"));
}

TEST(SpecialFile, WhatCantHoldBytesIsRefusedWithoutWaiting) {
    TestDir aDir;
    TraceLog aTrace;
    ASSERT_EQ(::mkfifo("fifo", 0600), 0);
    std::filesystem::create_directory("dir");
    WriteBytes("file", "x");
    const struct {
        const char* lpPath;
        int bWrite;
        CmInt32 lResult;
        int nErrno;
    } aCases[] = {{".\\fifo", 0, 4006, EINVAL},
                  {".\\fifo", 1, 4006, EINVAL},
                  {".\\dir", 0, 4006, EISDIR},
                  {".\\dir", 1, 4006, EISDIR},
                  {".\\file\\in it", 1, 4006, ENOTDIR},
                  {".\\file\\in it", 0, 4006, ENOTDIR},
                  {"", 0, 4001, ENOENT}};
    for (const auto& aCase : aCases) {
        SCOPED_TRACE(aCase.lpPath);
        const CRefPtr<IFileOperation> pFile = CFileOperationFactory::Instance()->CreateLocalFile(0);
        EXPECT_EQ(pFile->Open(aCase.lpPath, aCase.bWrite), aCase.lResult);
        EXPECT_EQ(aTrace.TakeErrors(), std::string("CLocalFile::Open->Open ") +
                                           (aCase.bWrite ? "write" : "reading only") +
                                           " File Error=" + std::to_string(aCase.nErrno) +
                                           " this=*\n");
    }
}

TEST(SpecialFile, AReadOrSeekThatFailsIsTraced) {
    TraceLog aTrace;
    const auto open = [](const char* lpPath, int bWrite) {
        CRefPtr<IFileOperation> pFile = CFileOperationFactory::Instance()->CreateLocalFile(0);
        if (pFile->Open(lpPath, bWrite) != 0) pFile = nullptr;
        return pFile;
    };
    const auto pUnreadable = open("\\proc\\self\\mem", 0);  // address 0 can't be read
    const auto pUnseekable = open("\\dev\\ptmx", 1);
    if (!pUnreadable || !pUnseekable) GTEST_SKIP() << "no /proc/self/mem or /dev/ptmx here";
    CmUint32 dwLength = 5;
    unsigned char aBuffer[5];
    EXPECT_EQ(pUnreadable->ReadData(aBuffer, 0, dwLength), 4006);
    EXPECT_EQ(pUnseekable->ReadData(aBuffer, 4294967295, dwLength), 4006);
    EXPECT_EQ(pUnseekable->WriteData("x", 1), 4006);
    EXPECT_EQ(pUnseekable->WriteData("x", c_dwEnd), 4006);
    EXPECT_EQ(dwLength, 5U);
    EXPECT_EQ(aTrace.TakeErrors(),
              "CLocalFile::ReadData->Read data error=5 dwLength=5 aSize=0 this=*\n"
              "CLocalFile::ReadData->Seek fileoffset error=29 dwOffset=4294967295 this=*\n"
              "CLocalFile::WriteData->Seek fileoffset error=29 dwOffset=1 this=*\n"
              "CNFSFile::WriteData->Seek to file end error=29 this=*\n");
}

TEST(SpecialFile, ChildProcessesDontInheritFilesAndTheCloseOfALostOneIsTraced) {
    TestDir aDir;
    TraceLog aTrace;
    const int nNext = ::dup(0);  // the lowest free descriptor, which the file gets
    ::close(nNext);
    const CRefPtr<IFileOperation> pFile = CFileOperationFactory::Instance()->CreateLocalFile(0);
    ASSERT_EQ(pFile->Open(".\\a", 1), 0);
    EXPECT_EQ(::fcntl(nNext, F_GETFD), FD_CLOEXEC);
    ASSERT_EQ(::close(nNext), 0);
    EXPECT_EQ(pFile->Close(), 4006);
    EXPECT_EQ(aTrace.TakeErrors(), "CLocalFile::Close->Close File error=9 m_hFD=* this=*\n");
    EXPECT_EQ(pFile->Close(), 0) << "the stream is forgotten anyway";
}
