#include "tests/support/Player.h"

namespace {

/// A chained container of five entries, whose data and entries lie mixed.
CCmString SmallContainer() {
    const unsigned aAt[] = {24, 200, 58, 90, 240};
    const HandEntry aEntries[] = {{268, 7, 11, 184, aAt[1]},
                                  {c_wConf, 0, 12, 122, aAt[2]},
                                  {284, 3, 13, 272, aAt[3]},
                                  {c_wUnknown, 1, 14, 0, aAt[4]},
                                  {c_wUnknown, 7, 15, 184, 0xFFFFFFFF}};
    CCmString strBytes = Pattern(280, 5);
    SetHeader(strBytes, 280, 5, 1);
    strBytes.replace(aEntries[1].dwDataOffset, c_nConfHeader, ConfBytes(21, 22));
    for (int i = 0; i < 5; ++i) SetEntry(strBytes, aAt[i], aEntries[i]);
    return strBytes;
}

using BadContainer = HostModeTest;
using LongWalk = HostTest;  // slow, and equal in both modes

}  // namespace

INSTANTIATE_BOTH_MODES(BadContainer);

TEST_F(LongWalk, OfACircleEndsAtItsCountTheBudgetOrARoundWithoutNewStreams) {
    const struct {
        unsigned nLeadIn, nLap;
        unsigned nKnownLeadIn, nKnownLap;  // how many of them have known tags; those are first
        CmUint32 dwCount;
        CmInt32 lResult;
        CmUint32 dwStreams;
    } aCases[] = {
        {0, 1, 0, 0, 0xFFFFFFFF, 0, 0},
        {0, 1, 0, 1, 1000, 0, 1000},
        {0, 1, 0, 1, 0xFFFFFFFF, 4011, c_dwBudget},
        {0, 1, 0, 1, c_dwBudget, 0, c_dwBudget},
        {0, 2, 0, 1, 2 * c_dwBudget, 0, c_dwBudget},
        {0, 2, 0, 1, 2 * c_dwBudget + 1, 4011, c_dwBudget},
        {3, 5, 2, 0, 0xFFFFFFFF, 0, 2},
        {4, 3, 4, 2, 4 + 3 * 10'001 + 1, 0, 4 + 2 * 10'001 + 1},
        {5, 7, 5, 7, 0xFFFFFFFF, 4011, c_dwBudget},
        {1000, 1000, 0, 0, 0xFFFFFFFF, 0, 0},
        {1000, 999, 1, 1, 1000 + 999 * 7 + 1, 0, 1 + 7 + 1},
    };
    for (const auto& aCase : aCases) {
        SCOPED_TRACE(&aCase - aCases);
        const unsigned nEntries = aCase.nLeadIn + aCase.nLap;
        CCmString strBytes;
        SetHeader(strBytes, 1, aCase.dwCount, 1);
        for (unsigned i = 0; i < nEntries; ++i) {
            const bool bKnown =
                i < aCase.nLeadIn ? i < aCase.nKnownLeadIn : i - aCase.nLeadIn < aCase.nKnownLap;
            const unsigned nNext = i + 1 < nEntries ? i + 1 : aCase.nLeadIn;
            SetEntry(strBytes, c_nHeader + i * c_nEntry,
                     {bKnown ? 258U : c_wUnknown, i, i, 0, c_nHeader + nNext * c_nEntry});
        }
        WriteBytes("c", strBytes);
        Player aPlayer(Async, nullptr);
        EXPECT_EQ(aPlayer.Open("c"), aCase.lResult);
        EXPECT_EQ(aPlayer.m_vecStreams.size(), aCase.dwStreams);
        EXPECT_EQ(m_trace.TakeErrors(),
                  aCase.lResult == 0
                      ? ""
                      : "CDownloadFileHandler::InitFileInfo->Too many entries, count=" +
                            std::to_string(aCase.dwCount) + " this=*\n");
    }
}

TEST_F(LongWalk, EndsAtTheBudgetOfUnknownEntries) {
    constexpr CmUint32 dwMost = 4'194'304;
    CCmString strHeader;
    for (const CmUint32 dwCount : {dwMost, dwMost + 1}) {
        SetHeader(strHeader, 1, dwCount, 0);
        WriteBytes("c", strHeader);
        std::filesystem::resize_file("c", c_nHeader + std::uintmax_t{c_nEntry} * dwCount);
        EXPECT_EQ(Player(Async, nullptr).Open("c"), dwCount == dwMost ? 0 : 4011);
    }
    EXPECT_EQ(m_trace.TakeErrors(),
              "CDownloadFileHandler::InitFileInfo->Too many entries, count=4194305 this=*\n");
    CContainerIndex aIndex;
    EXPECT_EQ(aIndex.Open("c"), 4011);
    EXPECT_EQ(aIndex.GetEntryCount(), dwMost);
    EXPECT_EQ(aIndex.GetEndOfWalk(), CContainerIndex::Walk_TooMany);
}

TEST_P(BadContainer, EachFailureIsTracedAndEarlierStreamsStayReadable) {
    const CCmString strGood = SmallContainer();
    const auto with32 = [&](unsigned nAt, CmUint32 dwValue) {
        CCmString strBytes = strGood;
        Set32(strBytes, nAt, dwValue);
        return strBytes;
    };
    constexpr unsigned nConfData = 200 + 16, nFirstNext = 24 + 24;
    const struct {
        CCmString strBytes;
        CmInt32 lResult;
        std::size_t nStreams;
        const char* lpLine;
    } aCases[] = {
        {strGood, 0, 3, ""},
        {strGood.substr(0, 10), 4002, 0, "Read File header error, HeadLen=10"},
        {with32(8, 0), 4002, 0, "Bad file type"},
        {with32(16, 0), 4002, 0, "Bad file type"},
        {with32(20, 2), 4002, 0, "Bad file type"},
        {strGood.substr(0, 55), 4002, 0, "Read MRFD error, RetLen=31"},
        {with32(16, 6), 4002, 3, "Read MRFD error, RetLen=0"},
        {with32(16, 0xFFFFFFFF), 4002, 3, "Read MRFD error, RetLen=0"},
        {with32(nFirstNext, 280 - 31), 4002, 1, "Read MRFD error, RetLen=31"},
        {with32(nFirstNext, 0xFFFFFFFF), 4002, 1, "Read MRFD error, RetLen=0"},
        {with32(nConfData, 280 - 72), 0, 3, ""},
        {with32(nConfData, 280 - 71), 4002, 2, "Read Conf fileheader error,dwHeaderLen=71"},
        {with32(nConfData, 0xFFFFFFFF), 4002, 2, "Read Conf fileheader error,dwHeaderLen=0"},
    };
    for (const auto& aCase : aCases) {
        SCOPED_TRACE(&aCase - aCases);
        WriteBytes("c", aCase.strBytes);
        Player aPlayer(GetParam(), &m_sink);
        EXPECT_EQ(aPlayer.Open("c"), aCase.lResult);
        EXPECT_EQ(aPlayer.m_vecStreams.size(), aCase.nStreams);
        EXPECT_LE(aPlayer.m_vecStreams.capacity(), strGood.size() / c_nEntry);
        const std::string strLine(aCase.lpLine);
        EXPECT_EQ(
            m_trace.TakeErrors(),
            strLine.empty() ? "" : "CDownloadFileHandler::InitFileInfo->" + strLine + " this=*\n");
        const tagDataInfo aInfo = InfoOf(DescriberOf(268, 7, 11));
        EXPECT_EQ(aPlayer.Read(aInfo, 0, 4), aCase.nStreams ? 0 : 4009);
        Settle();
        if (aCase.nStreams > 0) {
            EXPECT_EQ(m_sink.m_strData, aCase.strBytes.substr(184, 4));
        }
        EXPECT_EQ(aPlayer.Open("c"), 4008);
        m_trace.TakeErrors();
    }
}
