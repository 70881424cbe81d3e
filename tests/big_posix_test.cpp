#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/Player.h"

/// What is as large, as many, as long or as odd as it may be, in either mode. Large files are
/// sparse.
using Big = HostModeTest;
INSTANTIATE_BOTH_MODES(Big);

namespace {

constexpr std::uint64_t c_qw4GiB = std::uint64_t{1} << 32;
constexpr tagFileDescriber c_aDescriber{8, 2, 7008, 5};

/// nLength bytes of a file that is too large to be read whole.
CCmString BytesAt(const CCmString& strName, std::uint64_t qwOffset, std::size_t nLength) {
    CCmString strBytes(nLength, '\0');
    const int nFile = ::open(("kvr2/7/" + strName).c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t nRead = ::pread(nFile, strBytes.data(), nLength, static_cast<off_t>(qwOffset));
    ::close(nFile);
    return strBytes.substr(0, nRead < 0 ? 0 : static_cast<std::size_t>(nRead));
}

/// Sets how many files the process may have open, until its end.
class OpenFileLimit {
 public:
    explicit OpenFileLimit(rlim_t nFiles) {
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit aLimit{nFiles, std::max(nFiles, m_before.rlim_max)};
        m_nErrno = ::setrlimit(RLIMIT_NOFILE, &aLimit) == 0 ? 0 : errno;
    }
    ~OpenFileLimit() { ::setrlimit(RLIMIT_NOFILE, &m_before); }
    OpenFileLimit(const OpenFileLimit&) = delete;
    OpenFileLimit& operator=(const OpenFileLimit&) = delete;

    bool IsSet() const { return m_nErrno == 0; }

 private:
    rlimit m_before{};
    int m_nErrno = 0;
};

}  // namespace

TEST_P(Big, AFileGrowsPast4GiBAndIsReadUpToWhatAnOffsetCanSay) {
    Recording aRecording(GetParam(), &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    Settle();
    ASSERT_EQ(::truncate("kvr2/7/a", c_qw4GiB - 50'000), 0) << "no room for a sparse file";
    for (unsigned i = 0; i < 3; ++i)
        EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000, i * 40'000)), 0);
    EXPECT_EQ(aRecording.Write(dwHandle, "the end"), 0);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    Settle();
    EXPECT_EQ(std::filesystem::file_size("kvr2/7/a"), c_qw4GiB + 70'007);
    EXPECT_EQ(BytesAt("a", c_qw4GiB - 50'000, 130'000), Pattern(120'000) + "the end");

    Collector aCollector;
    Player aPlayer(GetParam(), &aCollector, Player::ForFiles);
    ASSERT_EQ(aPlayer.OpenFile("a", c_aDescriber), 0);
    const struct {
        CmUint32 dwOffset, dwLength;
    } aReads[] = {{0xFFFFFFFE, 1}, {0xFFFFFFFE, 4}, {0xFFFFFFFF, 1}, {0xFFFFFFFF, 100'000}};
    for (const auto& [dwOffset, dwLength] : aReads) {
        EXPECT_EQ(aPlayer.Read(InfoOf(c_aDescriber), dwOffset, dwLength), 0);
        Settle();
        EXPECT_EQ(Difference(aCollector.Take(), BytesAt("a", dwOffset, dwLength)), "") << dwOffset;
    }
    EXPECT_EQ(m_sink.Take(), GetParam() == Async ? "Open 0" : "");
}

TEST_P(Big, APositionedWriteBeginsBelow2GiB) {
    Recording aRecording(GetParam(), &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    EXPECT_EQ(aRecording.Write(dwHandle, "across", 0x7FFFFFFF), 0);
    Settle();
    m_sink.Take();
    EXPECT_EQ(aRecording.Write(dwHandle, "beyond", 0x80000000), GetParam() == Async ? 0 : 4006);
    Settle();
    EXPECT_EQ(m_sink.Take(), GetParam() == Async ? "Write 4006" : "");
    EXPECT_EQ(m_lost.Take(), GetParam() == Async ? 6U : 0U);
    EXPECT_EQ(aRecording.Write(dwHandle, " and on"), 0);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    Settle();
    EXPECT_EQ(BytesAt("a", 0x7FFFFFFF, 100), "across and on");
}

TEST_P(Big, OneHandlerHoldsTenThousandFiles) {
    constexpr unsigned nFiles = 10'000;
    const OpenFileLimit aLimit(nFiles + 200);
    if (!aLimit.IsSet()) GTEST_SKIP() << "no more open files here";
    Recording aRecording(GetParam(), &m_sink);
    std::vector<CmUint32> vecHandles;
    for (unsigned i = 0; i < nFiles; ++i) vecHandles.push_back(aRecording.Open(std::to_string(i)));
    for (unsigned i = 0; i < nFiles; ++i)
        ASSERT_EQ(aRecording.Write(vecHandles[i], std::to_string(i * 7)), 0);
    for (unsigned i = 0; i < nFiles; i += 3) ASSERT_EQ(aRecording->CloseFile(vecHandles[i]), 0);
    aRecording.Destroy();
    Settle();
    for (unsigned i = 0; i < nFiles; ++i)
        ASSERT_EQ(ReadBytes("kvr2/7/" + std::to_string(i)), std::to_string(i * 7));
    EXPECT_EQ(m_lost.Take(), 0U);
}

TEST_P(Big, TheLimitOfTheProcessEndsOpeningWith4006AndNothingElse) {
    Recording aRecording(GetParam(), &m_sink);
    std::vector<CmUint32> vecHandles{aRecording.Open("0")};
    Settle();
    const OpenFileLimit aLimit(static_cast<rlim_t>(::dup(0)) + 20);
    std::string strTold;
    CmInt32 lResult = 0;
    while (lResult == 0 && vecHandles.size() < 100) {
        m_sink.Take();
        CmUint32 dwHandle = 0;
        lResult = aRecording->OpenWritingFile(std::to_string(vecHandles.size()), dwHandle);
        Settle();
        strTold = m_sink.Take();
        if (strTold == "Open 4006") break;
        if (lResult == 0) vecHandles.push_back(dwHandle);
    }
    EXPECT_EQ(lResult, GetParam() == Async ? 0 : 4006);
    EXPECT_EQ(strTold, GetParam() == Async ? "Open 4006" : "");
    EXPECT_EQ(m_trace.TakeErrors().find("CLocalFile::Open->Open write File Error=24 this=*\n"), 0U);
    EXPECT_GT(vecHandles.size(), 10U);
    for (const CmUint32 dwHandle : vecHandles) EXPECT_EQ(aRecording.Write(dwHandle, "kept"), 0);
    EXPECT_EQ(aRecording->CloseFile(vecHandles[3]), 0);
    Settle();
    aRecording.Open("again");
    Settle();
    EXPECT_EQ(m_sink.Take(), GetParam() == Async ? "Open 0" : "");
    aRecording.Destroy();
    Settle();
    for (std::size_t i = 0; i < vecHandles.size(); ++i)
        EXPECT_EQ(ReadBytes("kvr2/7/" + std::to_string(i)), "kept");
}

TEST_P(Big, NamesArePassedOnAsLongAsTheSystemTakesThem) {
    const CCmString strLongName(255, 'n');
    CCmString strDeep = ".\\";
    while (strDeep.size() < 3900) strDeep += CCmString(99, 'd') + "\\";
    const CCmString strLast(4095 - strDeep.size(), 'f');
    const struct {
        CCmString strDirectory, strName;
        CmInt32 lResult;
    } aCases[] = {{".\\", strLongName, 0},
                  {".\\", strLongName + "n", 4006},
                  {".\\" + strLongName + "n", "a", 4006},
                  {strDeep, strLast, 0},
                  {strDeep, strLast + "f", 4006}};
    for (const auto& aCase : aCases) {
        SCOPED_TRACE(std::to_string(aCase.strDirectory.size() + aCase.strName.size()));
        Recording aRecording(GetParam(), &m_sink);
        aRecording->SetHomeDir(aCase.strDirectory);
        CmUint32 dwHandle = 0;
        const CmInt32 lResult = aRecording->OpenWritingFile(aCase.strName, dwHandle);
        EXPECT_EQ(lResult, GetParam() == Async ? 0 : aCase.lResult);
        if (lResult == 0) aRecording.Write(dwHandle, "held");
        aRecording->FlushData(dwHandle);
        Settle();
        EXPECT_EQ(m_sink.Take().substr(0, 9),
                  GetParam() == Async ? ("Open " + std::to_string(aCase.lResult)) : "");
        if (aCase.lResult != 0) continue;
        Player aPlayer(Sync, nullptr, Player::ForFiles);
        aPlayer->SetHomeDir(aCase.strDirectory);
        EXPECT_EQ(aPlayer.OpenFile(aCase.strName, c_aDescriber), 0);
        EXPECT_EQ(aPlayer.SyncRead(InfoOf(c_aDescriber), 0, 9), "held");
    }
}

TEST_P(Big, WhatIsNoFileIsRefusedByEveryHandler) {
    std::filesystem::create_directories("kvr2/7/dir");
    ASSERT_EQ(::mkfifo("kvr2/7/fifo", 0600), 0);
    for (const CCmString strName : {"dir", "fifo"}) {
        SCOPED_TRACE(strName);
        Recording aRecording(GetParam(), &m_sink);
        Player aPlayer(GetParam(), &m_sink, Player::ForFiles), aDownload(GetParam(), &m_sink);
        const CmInt32 lOpen = GetParam() == Async ? 0 : 4006;
        EXPECT_EQ(aRecording.TryOpen(strName), lOpen);
        for (const int bWrite : {0, 1})
            EXPECT_EQ(aPlayer.OpenFile(strName, c_aDescriber, bWrite), lOpen);
        EXPECT_EQ(aDownload.Open("kvr2/7/" + strName), 4006) << "which waits for the walk";
        Settle();
        EXPECT_EQ(m_sink.Take(),
                  GetParam() == Async ? "Open 4006, Open 4006, Open 4006, Open 4006" : "");
    }
}

TEST_P(Big, TwoHandlersOnOneFileAppendInTheOrderOfTheirCalls) {
    Recording aOne(GetParam(), &m_sink), aOther(GetParam(), &m_sink);
    const CmUint32 dwOne = aOne.Open("a"), dwOther = aOther.Open("a");
    CCmString strAll;
    for (unsigned i = 0; i < 40; ++i) {
        Recording& aWriter = i % 3 == 0 ? aOne : aOther;
        const CCmString strBlock = Pattern(32'768 + i, i);
        EXPECT_EQ(aWriter.Write(i % 3 == 0 ? dwOne : dwOther, strBlock), 0);
        strAll += strBlock;
    }
    EXPECT_EQ(aOne->CloseFile(dwOne), 0);
    EXPECT_EQ(aOther.Write(dwOther, "last"), 0);
    aOther.Destroy();
    Settle();
    ExpectFile("kvr2/7/a", strAll + "last");
}
