#include <algorithm>

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

    /// Returns the number of reads since the last call.
    std::size_t CountReads() {
        const std::string strCalls = m_script.Take();
        return static_cast<std::size_t>(std::count(strCalls.begin(), strCalls.end(), '\n'));
    }

    CCmString m_strFile;
    LinkScript m_script;
    CRefPtr<IFileOperation> m_pFile = new FileLink(m_script, new CLocalFile(0));
};

// The fuzz target container_fuzz limits how many bytes any chain may read.
TEST_F(Index, AForwardWalkReadsTheFileInBlocks) {
    ExpectAll();
    EXPECT_LT(CountReads(), 12U) << "for 3,000 entries";
    ResizeFile(c_nHeader + 9'000'000);
    for (const unsigned nStep : {4U, 33U, 5'000U, 32'767U}) {
        CIndexReader aReader(*m_pFile);
        std::size_t nAt = c_nHeader;
        for (int i = 0; i < 100'000 && nAt + c_nEntry <= m_strFile.size(); ++i, nAt += nStep)
            ASSERT_EQ(Entry(aReader, nAt), m_strFile.substr(nAt, c_nEntry)) << nAt;
        EXPECT_LT(CountReads(), 12 + nAt / 60'000) << nStep;
    }
    CIndexReader aReader(*m_pFile);
    EXPECT_EQ(Entry(aReader, m_strFile.size() - 31), m_strFile.substr(m_strFile.size() - 31));
    EXPECT_EQ(Entry(aReader, 0xFFFFFFFF), "");
    EXPECT_EQ(CountReads(), 2U);
    for (const std::uint64_t qwFar : {0x100000000U, 0x100000018U, 0xFFFFFFFFFFFFFFE0U})
        EXPECT_EQ(Entry(aReader, qwFar), "") << "counts as nothing read";
    EXPECT_EQ(CountReads(), 0U);
}

TEST_F(Index, AnEntryOutsideABlockIsReadAlone) {
    m_script.FailAll("Read 65536@", 4006);
    ExpectAll();
    m_script.FailAll("Read", 4003);  // the result is the code of the read of the single entry
    CIndexReader aReader(*m_pFile);
    EXPECT_EQ(Entry(aReader, 24), "4003");
    m_script.aFault = nullptr;
    ResizeFile(50'010);  // the last block ends within an entry
    ExpectAll();
}
