#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "fileop/FileOperation.h"
#include "tests/support/HostTest.h"

TEST(SpecialFile, AFifoOrDirectoryIsRefusedWithoutWaiting) {
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
    ::close(nFile);  // the next file that is opened gets this number
    ASSERT_EQ(pClosed->Open("\\dev\\null", 0), 0);
    EXPECT_EQ(::fcntl(nFile, F_GETFD), FD_CLOEXEC) << "programs that the host starts inherit it";
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
