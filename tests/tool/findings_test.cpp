#include "tools/cachefile/Examine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "cachefile.h"
#include "tests/support/Containers.h"
#include "tests/support/Files.h"

namespace {

/// The files that extract writes: the bytes of each stream.
std::map<std::string, CCmString> Extracted(const tagRecording& aRecording,
                                           const CCmString& strFile) {
    std::map<std::string, CCmString> mapFiles;
    for (const tagStream& a : aRecording.vecStreams)
        if (a.bKnown && a.nHiddenBy == 0 && a.qwOffset <= strFile.size())
            mapFiles[a.Name()] = strFile.substr(static_cast<std::size_t>(a.qwOffset),
                                                static_cast<std::size_t>(a.qwPresent));
    return mapFiles;
}

/// A container from the library's writer with four streams, a conf stream and an empty stream.
CCmString Written(CmUint32 dwIndexType) {
    CContainerWriter aWriter;
    aWriter.SetIndexType(dwIndexType);
    aWriter.SetFileHeader(1, 2);
    const unsigned aSizes[] = {100, 0, 300, 7, 64};
    for (unsigned i = 0; i < std::size(aSizes); ++i) {
        const CCmString strData = Pattern(aSizes[i], i);
        EXPECT_EQ(aWriter.AddTagStream(
                      268, i, 0, reinterpret_cast<const unsigned char*>(strData.data()), aSizes[i]),
                  0);
    }
    EXPECT_EQ(aWriter.Write(".\\written"), 0);
    return ReadBytes("written");
}

bool Has(const tagFindings& aFindings, const std::string& strCode, std::uint64_t qwOffset) {
    return std::any_of(
        aFindings.vecFindings.begin(), aFindings.vecFindings.end(),
        [&](const tagFinding& a) { return a.lpCode == strCode && a.qwOffset == qwOffset; });
}

}  // namespace

TEST(Findings, EveryChangedBitOfOffsetLengthOrNextIsReportedOrChangesNothing) {
    const TestDir aDir;
    for (const CmUint32 dwIndexType : {0U, 1U}) {
        const CCmString strGood = Written(dwIndexType);
        WriteBytes("c", strGood);
        const tagRecording aGood = LoadRecording("c");
        ASSERT_TRUE(Examine(aGood).vecTotals.empty());
        const auto mapGood = Extracted(aGood, strGood);
        ASSERT_EQ(mapGood.size(), 6U);
        unsigned nReported = 0;
        for (std::size_t nEntry = 0; nEntry < 6; ++nEntry) {
            for (const std::size_t nWord : {16U, 20U, 24U}) {
                for (unsigned nBit = 0; nBit < 32; ++nBit) {
                    const std::size_t nAt = c_nHeader + nEntry * c_nEntry + nWord;
                    CCmString strBad = strGood;
                    Set32(strBad, nAt, Get32(strGood, nAt) ^ 1U << nBit);
                    WriteBytes("c", strBad);
                    const tagRecording aBad = LoadRecording("c");
                    const bool bReported = !Examine(aBad).vecTotals.empty();
                    nReported += bReported;
                    EXPECT_TRUE(bReported || Extracted(aBad, strBad) == mapGood)
                        << "type " << dwIndexType << " entry " << nEntry << " word " << nWord
                        << " bit " << nBit;
                }
            }
        }
        EXPECT_GT(nReported, 350U);  // changes of all offsets and of nearly all lengths
    }
}

TEST(Findings, EveryLinkBackIsACircle) {
    const TestDir aDir;
    constexpr unsigned nEntries = 20, nData = 10;
    for (const unsigned wTag : {268U, c_wUnknown}) {
        for (unsigned nFrom = 0; nFrom < nEntries; ++nFrom) {
            for (unsigned nTo = 0; nTo <= nFrom; ++nTo) {
                // A reader does not use the next offset of the last entry.
                for (const unsigned nCount : {nFrom + 2, nEntries, nEntries + 1, 1000U}) {
                    if (nCount < nFrom + 2) continue;
                    const unsigned nEnd = c_nHeader + nEntries * (c_nEntry + nData);
                    CCmString strBytes;
                    SetHeader(strBytes, nEnd, nCount, 1);
                    for (unsigned i = 0; i < nEntries; ++i) {
                        const unsigned nAt = c_nHeader + i * c_nEntry;
                        const unsigned nNext = i == nFrom ? nTo : i + 1;
                        SetEntry(strBytes, nAt,
                                 {wTag, i, 0, c_nHeader + nEntries * c_nEntry + i * nData,
                                  c_nHeader + nNext * c_nEntry});
                        Set32(strBytes, nAt + 20, nData);
                    }
                    strBytes.resize(nEnd, 'x');
                    WriteBytes("c", strBytes);
                    const tagRecording aRecording = LoadRecording("c");
                    const tagFindings aFindings = Examine(aRecording);
                    const bool bFound =
                        aRecording.pIndex->GetEndOfWalk() == CContainerIndex::Walk_Circle &&
                        aRecording.pIndex->GetEndOffset() == c_nHeader + nTo * c_nEntry &&
                        aRecording.vecStreams.size() == nFrom + 1 && aFindings.qwErrors == 1 &&
                        Has(aFindings, "chain-circle", c_nHeader + nFrom * c_nEntry);
                    const auto mapFiles = Extracted(aRecording, strBytes);
                    const bool bWhole =
                        std::all_of(mapFiles.begin(), mapFiles.end(),
                                    [](const auto& a) { return a.second.size() == nData; });
                    EXPECT_TRUE(bFound && bWhole) << "tag " << wTag << " from " << nFrom << " to "
                                                  << nTo << " count " << nCount;
                    EXPECT_EQ(mapFiles.size(), wTag == c_wUnknown ? 0 : nFrom + 1);
                }
            }
        }
    }
}
