#include <cerrno>

#include "tests/disk/PowerCuts.h"
#include "tests/support/HostTest.h"

using PowerCut = HostTest;

namespace {

constexpr std::size_t c_nDisks = 12'000;  // that are checked at each point

CmInt32 Pack(const CCmString& strPath, const CCmString& strBytes) {
    CContainerWriter aWriter;
    EXPECT_EQ(
        aWriter.AddStream({3, 2, 1003, 0}, reinterpret_cast<const unsigned char*>(strBytes.data()),
                          static_cast<CmUint32>(strBytes.size())),
        0);
    return aWriter.Write(strPath);
}

/// The file is one of these, with all its bytes; "<no file>" stands for none.
PowerCuts::Check IsOneOf(std::vector<CCmString> vecBytes) {
    return [vecBytes = std::move(vecBytes)](const CCmString* pBytes) {
        for (const CCmString& strOne : vecBytes)
            if (strOne == (pBytes ? *pBytes : "<no file>")) return std::string();
        return (pBytes ? std::to_string(pBytes->size()) + " bytes" : "no file") +
               ", neither the old container nor the new one";
    };
}

}  // namespace

TEST_F(PowerCut, LeavesTheOldContainerOrTheWholeNewOne) {
    constexpr int c_nNoFault = -1;
    MemoryDisk& aDisk = MemoryDisk::Instance();
    SeededRandom aRandom;
    std::size_t nDisks = 0;
    for (const int nFault : {c_nNoFault, int{MemoryDisk::Op_Sync}, int{MemoryDisk::Op_SyncNames}})
        for (const unsigned nSize : {20'000U, 130'000U, 300'000U}) {
            SCOPED_TRACE(testing::Message() << nFault << ", " << nSize);
            const CCmString strOld = Pattern(nSize / 2), strNew = Pattern(nSize, 7);
            aDisk.Clear();
            EXPECT_EQ(Pack("old", strOld) + Pack("new", strNew), 0);
            const CCmString aFiles[] = {"<no file>", aDisk.Get("old"), aDisk.Get("new")};
            aDisk.m_mapNames.clear();
            aDisk.m_bLog = true;
            PowerCuts aCuts;
            for (const int nFile : {1, 2}) {
                const bool bFails = nFile == 2 && nFault != c_nNoFault;
                aCuts.Promise("c", IsOneOf({aFiles[nFile - 1], aFiles[nFile]}));
                if (bFails)
                    aDisk.m_fault = [&](const MemoryDisk::Call& aCall) {
                        return MemoryDisk::Fault{aCall.aOp == nFault, EIO};
                    };
                EXPECT_EQ(Pack("c", nFile == 1 ? strOld : strNew), bFails ? 4006 : 0);
                if (!bFails) aCuts.Promise("c", IsOneOf({aFiles[nFile]}));
            }
            EXPECT_EQ(aCuts.Find(aRandom, c_nDisks), "");
            nDisks += aCuts.CountDisks();
        }
    std::cout << nDisks << " disks\n";
    EXPECT_GE(nDisks, 100'000U);
}
