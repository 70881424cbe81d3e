#include "download/ContainerIndex.h"
#include "tests/faults/Memory.h"
#include "tests/support/Player.h"

namespace {

using ContainerMemory = HostTest;

/// The most known entries, each of another stream.
CCmString ManyEntries() {
    CCmString strBytes;
    const CmUint32 dwEnd = c_nHeader + c_dwBudget * c_nEntry;
    SetHeader(strBytes, dwEnd, c_dwBudget, 0);
    strBytes.resize(dwEnd);
    for (CmUint32 i = 0; i < c_dwBudget; ++i)
        SetEntry(strBytes, c_nHeader + i * c_nEntry, {268, i, 0, dwEnd, 0});
    return strBytes;
}

TEST_F(ContainerMemory, EachEntryTakesFewBytes) {
    WriteBytes("c", ManyEntries());
    std::size_t nBefore = Memory::StartPeak();
    Player aPlayer(Sync, &m_sink);
    const auto perEntry = [&] { return (Memory::StartPeak() - nBefore) / c_dwBudget; };
    ASSERT_EQ(aPlayer.Open("c"), 0);
    EXPECT_EQ(perEntry(), 44U);  // the entry for the player and the describer for the host
    CmUint32 dwLength = 1;
    // So many lookups make the table, and the first one reads the lengths.
    for (const CmUint32 n : {c_dwBudget - 1, c_dwBudget - 2})
        EXPECT_EQ(aPlayer->GetStreamLength(InfoOf(DescriberOf(268, n, 0)), dwLength), 0);
    EXPECT_LE(perEntry(), 80U);

    nBefore = Memory::StartPeak();
    CContainerIndex aIndex;
    ASSERT_EQ(aIndex.Open("c"), 0);
    EXPECT_LE(perEntry(), 40U);
    EXPECT_EQ(aIndex.GetStreamLength(0, dwLength), 0);
    EXPECT_LE(perEntry(), 52U);
}

}  // namespace
