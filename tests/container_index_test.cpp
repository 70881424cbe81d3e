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

    /// Returns the bytes of the entry, or their number if the file ends in it, or the code.
    CCmString Entry(CIndexReader& aReader, std::uint64_t qwOffset, CmUint32 dwLeft = 0xFFFFFFFF) {
        const unsigned char* const lpBytes = aReader.ReadEntry(qwOffset, dwLeft);
        if (lpBytes) return CCmString(reinterpret_cast<const char*>(lpBytes), c_nEntry);
        return aReader.GetResult() == 0 ? std::to_string(aReader.GetLength()) + " bytes"
                                        : std::to_string(aReader.GetResult());
    }
    CCmString Wanted(std::size_t nAt) const {
        const CCmString strBytes = m_strFile.substr(nAt, c_nEntry);
        return strBytes.size() == c_nEntry ? strBytes : std::to_string(strBytes.size()) + " bytes";
    }

    /// Reads all entries in order, and once after the last.
    void ExpectAll() {
        CIndexReader aReader(*m_pFile);
        for (std::size_t nAt = c_nHeader; nAt <= m_strFile.size(); nAt += c_nEntry)
            ASSERT_EQ(Entry(aReader, nAt), Wanted(nAt)) << nAt;
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
    EXPECT_LT(CountReads(), 5U) << "for 3,000 entries";
    ResizeFile(c_nHeader + 9'000'000);
    for (const unsigned nStep : {4U, 33U, 5'000U, 32'767U}) {
        CIndexReader aReader(*m_pFile);
        std::size_t nAt = c_nHeader;
        for (int i = 0; i < 100'000 && nAt + c_nEntry <= m_strFile.size(); ++i, nAt += nStep)
            ASSERT_EQ(Entry(aReader, nAt), Wanted(nAt)) << nAt;
        EXPECT_LT(CountReads(), 12 + nAt / 60'000) << nStep;
    }
    CIndexReader aReader(*m_pFile);
    EXPECT_EQ(Entry(aReader, m_strFile.size() - 31), "31 bytes");
    EXPECT_EQ(Entry(aReader, 0xFFFFFFFF), "0 bytes");
    EXPECT_EQ(CountReads(), 2U);
    for (const std::uint64_t qwFar : {0x100000000U, 0x100000018U, 0xFFFFFFFFFFFFFFE0U})
        EXPECT_EQ(Entry(aReader, qwFar), "0 bytes") << "without a read";
    EXPECT_EQ(CountReads(), 0U);
}

TEST_F(Index, AShortIndexIsReadWithItsHeader) {
    const auto readTen = [&](bool bHeader) {
        CIndexReader aReader(*m_pFile);
        tagQXFFileHeader aHeader{};
        if (bHeader) {
            EXPECT_EQ(aReader.ReadFileHeader(aHeader).GetResult(), 0);
            EXPECT_EQ(aHeader.dwFileSize, Get32(m_strFile, 8));
        }
        for (CmUint32 i = 0; i < 10; ++i)
            EXPECT_EQ(Entry(aReader, c_nHeader + i * c_nEntry, 10 - i),
                      Wanted(c_nHeader + i * c_nEntry));
        return m_script.Take();
    };
    EXPECT_EQ(readTen(true), "Read 504@0\n");
    EXPECT_EQ(readTen(false), "Read 320@24\n");
    m_script.FailAll("Read 504@", 4006);
    EXPECT_EQ(readTen(true).substr(0, 32), "Read 504@0\nRead 24@0\nRead 32@24\n");
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
