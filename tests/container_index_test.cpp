#include <algorithm>
#include <sstream>

#include "download/IndexReader.h"
#include "fileop/LocalFile.h"
#include "tests/support/Containers.h"
#include "tests/support/FileLink.h"
#include "tests/support/HostTest.h"

/// An index of 3,000 packed entries, read through a link that can fail.
class Index : public HostTest {
 protected:
    Index() : m_strFile(Pattern(c_nHeader + 3000 * c_nEntry)) {
        WriteBytes("c", m_strFile);
        EXPECT_EQ(m_pFile->Open(".\\c", 0), 0);
        m_script.Take();
    }

    /// Returns the bytes of the entry, or the code.
    CCmString Entry(CIndexReader& aReader, std::uint64_t qwOffset) {
        unsigned char aBytes[c_nEntry] = {};
        CmUint32 dwLength = 99;
        const CmInt32 lResult = aReader.ReadEntry(qwOffset, aBytes, dwLength);
        return lResult == 0 ? CCmString(reinterpret_cast<char*>(aBytes), dwLength)
                            : std::to_string(lResult);
    }

    /// Reads all entries in order, and once after the last.
    void ExpectAll() {
        CIndexReader aReader(*m_pFile);
        for (std::size_t nAt = c_nHeader; nAt <= m_strFile.size(); nAt += c_nEntry)
            ASSERT_EQ(Entry(aReader, nAt), m_strFile.substr(nAt, c_nEntry)) << nAt;
    }

    void ResizeFile(std::size_t nSize) {
        m_strFile = Pattern(nSize);
        WriteBytes("c", m_strFile);
    }

    /// Returns the reads since the last call.
    struct Effort {
        std::uint64_t qwReads = 0;
        std::uint64_t qwBytes = 0;
    };
    Effort TakeEffort() {
        Effort aEffort;
        std::istringstream aCalls(m_script.Take());
        std::string strRead;
        char cAt = 0;
        for (std::uint64_t qwLength, qwAt; aCalls >> strRead >> qwLength >> cAt >> qwAt;) {
            const std::uint64_t qwThere =
                m_strFile.size() - std::min<std::uint64_t>(qwAt, m_strFile.size());
            ++aEffort.qwReads;
            aEffort.qwBytes += std::min(qwLength, qwThere);
        }
        return aEffort;
    }

    CCmString m_strFile;
    LinkScript m_script;
    CRefPtr<IFileOperation> m_pFile = new FileLink(m_script, new CLocalFile(0));
};

TEST_F(Index, AWalkForwardIsServedFromBlocksWhateverItsStep) {
    ExpectAll();
    EXPECT_LT(TakeEffort().qwReads, 12U) << "for 3,000 entries";
    ResizeFile(c_nHeader + 9'000'000);
    for (const unsigned nStep : {4U, 33U, 5'000U, 32'767U}) {
        CIndexReader aReader(*m_pFile);
        unsigned nEntries = 0;
        for (std::size_t nAt = c_nHeader; nAt + c_nEntry <= m_strFile.size() && nEntries < 100'000;
             nAt += nStep, ++nEntries)
            ASSERT_EQ(Entry(aReader, nAt), m_strFile.substr(nAt, c_nEntry)) << nAt;
        const std::size_t nSpan = std::min<std::size_t>(m_strFile.size(), nEntries * nStep);
        const Effort aEffort = TakeEffort();
        EXPECT_LT(aEffort.qwReads, 12 + std::min<std::size_t>(nEntries / 2, nSpan / 60'000))
            << nStep;
        EXPECT_LE(aEffort.qwBytes, nSpan + nSpan / 2048 + 288U * nEntries + 65'536) << nStep;
    }
    EXPECT_EQ(TakeEffort().qwReads, 0U);
    CIndexReader aReader(*m_pFile);
    EXPECT_EQ(Entry(aReader, m_strFile.size() - 31), m_strFile.substr(m_strFile.size() - 31));
    EXPECT_EQ(Entry(aReader, 0xFFFFFFFF), "");
    EXPECT_EQ(TakeEffort().qwReads, 2U);
    for (const std::uint64_t qwFar : {0x100000000U, 0x100000018U, 0xFFFFFFFFFFFFFFE0U})
        EXPECT_EQ(Entry(aReader, qwFar), "") << "counts as nothing read";
    EXPECT_EQ(TakeEffort().qwReads, 0U);
}

TEST_F(Index, WhatABlockCannotGiveIsReadAlone) {
    m_script.FailAll("Read 65536@", 4006);
    ExpectAll();
    m_script.Fail([](const std::string& strCall, int nCall) {
        return strCall.find("Read 65536@") == 0 && nCall % 3 != 0 ? 4006 : 0;
    });
    ExpectAll();
    m_script.FailAll("Read", 4003);  // the result is the code of the read of the single entry
    CIndexReader aReader(*m_pFile);
    EXPECT_EQ(Entry(aReader, 24), "4003");
    m_script.Fail(nullptr);
    ResizeFile(50'010);  // the last block ends within an entry
    ExpectAll();
}
