#include <cerrno>
#include <vector>

#include "tests/faults/Faults.h"
#include "tests/support/HostTest.h"

/// The worker writes appends to one file that wait one after another with one system call. Apart
/// from the number of calls, the host must not notice that.
class JoinedAppends : public HostTest {
 protected:
    struct Write {
        CmUint32 dwHandle;
        CCmString strBytes;
        CmUint32 dwOffset = c_dwEnd;
    };

    /// Queues the writes while the worker waits. Returns the number of system calls for them.
    int Run(const std::vector<Write>& vecWrites) {
        Settle();
        ThreadGate aGate(Worker());
        for (const Write& aWrite : vecWrites)
            EXPECT_EQ(m_recording.Write(aWrite.dwHandle, aWrite.strBytes, aWrite.dwOffset), 0);
        Faults::TakeWrites();
        aGate.Open();
        Settle();
        return Faults::TakeWrites();
    }

    Recording m_recording{Async, &m_sink};
};

TEST_F(JoinedAppends, AreOneCallUnlessSomethingIsBetweenThem) {
    const CCmString strOne(40'000, '1'), strTwo(32'768, '2');
    const CmUint32 dwA = m_recording.Open("a"), dwB = m_recording.Open("b");
    EXPECT_EQ(Run({{dwA, strOne}, {dwA, strTwo}, {dwA, strOne}, {dwB, strTwo}, {dwB, strOne}}), 2);
    EXPECT_EQ(Run({{dwA, strOne}, {dwB, strTwo}, {dwA, strTwo}}), 3);
    EXPECT_EQ(Run({{dwA, strOne}, {dwA, "middle", 3}, {dwA, strTwo}}), 3);
    EXPECT_EQ(Run({{dwB, CCmString(600'000, '6')}, {dwB, strOne}}), 2) << "too long together";
    EXPECT_EQ(Run(std::vector<Write>(20, {dwB, CCmString(32'768, 'm')})), 2) << "too many";
    CCmString strA = strOne + strTwo + strOne + strOne + strTwo + strOne + strTwo;
    ExpectFile(Recording::PathOf("a"), strA.replace(3, 6, "middle"));
    ExpectFile(Recording::PathOf("b"), strTwo + strOne + strTwo + CCmString(600'000, '6') + strOne +
                                           CCmString(20 * 32'768, 'm'));
    EXPECT_EQ(CCacheFileManager::GetPendingBytes(), 0U);
}

/// The system takes the first half of the bytes, and then fails.
TEST_F(JoinedAppends, FailOneByOne) {
    const std::vector<CCmString> vecTorn{CCmString(40'000, '0'), CCmString(50'000, '1'),
                                         CCmString(60'000, '2'), CCmString(33'000, '3')};
    const std::vector<CCmString> vecWhole{CCmString(40'000, '0'), CCmString(40'000, '1'),
                                          CCmString(33'000, '2'), CCmString(47'000, '3')};
    const struct {
        const char* lpName;
        std::vector<CCmString> vecBlocks;
        int nErrno;
        bool bForEver;
        std::string strWritten;  // the numbers of the blocks that are in the file
        std::string strReports;
    } aCases[] = {
        {"once", vecTorn, ENOSPC, false, "013", "Write 4003"},
        {"for ever", vecTorn, EIO, true, "01", "Write 4006, Write 4006"},
        {"no error", vecTorn, 0, false, "013", "Write 4003"},
        {"interrupted", vecTorn, EINTR, false, "0123", ""},
        {"between blocks", vecWhole, ENOSPC, false, "013", "Write 4003"},
    };
    for (const auto& aCase : aCases) {
        SCOPED_TRACE(aCase.lpName);
        const CmUint32 dwHandle = m_recording.Open(aCase.lpName);
        EXPECT_EQ(m_recording.Write(dwHandle, "before"), 0);
        m_recording->FlushData(dwHandle);
        Settle();
        m_sink.Take();
        std::vector<Write> vecWrites;
        std::uint64_t qwLost = 0;
        CCmString strFile = "before";
        for (std::size_t i = 0; i < aCase.vecBlocks.size(); ++i) {
            const CCmString& strBlock = aCase.vecBlocks[i];
            vecWrites.push_back({dwHandle, strBlock});
            const bool bWritten = aCase.strWritten.find(strBlock[0]) != std::string::npos;
            if (bWritten)
                strFile += strBlock;
            else
                qwLost += strBlock.size();
        }
        Faults::Arm(Faults::Call_write, 1, aCase.bForEver, aCase.nErrno);
        Run(vecWrites);
        Faults::Disarm();
        EXPECT_EQ(m_sink.Take(), aCase.strReports);
        EXPECT_EQ(m_lost.Take(), qwLost);
        tagFileLosses aLosses;
        EXPECT_EQ(m_recording->GetFileLosses(dwHandle, aLosses), 0);
        EXPECT_EQ(aLosses.qwLost, qwLost);
        EXPECT_EQ(aLosses.qwPending, 0U);
        ExpectFile(Recording::PathOf(aCase.lpName), strFile);
        EXPECT_EQ(m_recording->CloseFile(dwHandle), 0);
    }
}
