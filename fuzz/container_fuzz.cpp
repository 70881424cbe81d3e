#include <algorithm>
#include <cstring>
#include <memory>

#include "cachefile.h"
#include "fuzz/Reference.h"
#include "fuzz/Target.h"
#include "tests/support/Containers.h"

// Opens the input as a container, in synchronous mode, and compares the list of streams and some
// reads with the reference reader. Also limits how much of the file the walk may read.

namespace {

constexpr std::size_t c_nStreams = 3;  // the number of streams that are read
constexpr CmUint32 c_dwEnd = 0xFFFFFFFF;

class Sink final : public IFileOpSink {
 public:
    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType, CmInt32) override {
        Require(false, "a synchronous handler makes no status callback");
    }
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo&) override {
        Require(!m_pData, "each read has one data callback");
        m_pData.reset(lpData);
        m_dwLength = dwLength;
    }

    std::unique_ptr<unsigned char[]> m_pData;
    CmUint32 m_dwLength = 0;
};

class Run {
 public:
    explicit Run(std::uint64_t qwRandom) : m_qwRandom(qwRandom) {
        Require(m_pHandler->Initialize(&m_sink) == 0, "Initialize returns 0");
    }
    ~Run() {
        m_pHandler->Destroy();
        Require(TheFile().nOpen == 0, "the file is closed after Destroy");
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    void Open();
    void ReadAll();

 private:
    void CheckEffort() const;
    void CheckLengths();
    void ReadStream(const Reference::Stream& aStream);
    void Read(const tagDataInfo& aInfo, std::uint64_t qwOffset, std::uint64_t qwLength);
    CmUint32 Random() { return static_cast<CmUint32>((m_qwRandom *= 6364136223846793005) >> 32); }

    const Reference m_reference{TheFile().strBytes, TheFile().qwBadFrom, TheFile().qwBadTo};
    std::uint64_t m_qwRandom;
    Sink m_sink;
    CPlayFileHandler* const m_pHandler =
        CCacheFileManager::Instance().CreatePlayFileHandler(1, 1, 0);
};

void Run::Open() {
    std::vector<tagFileDescriber> vecStreams;
    const CmInt32 lResult = m_pHandler->OpenDownloadedFile(c_szPath, vecStreams);
    CheckEffort();
    const auto& vecWanted = m_reference.vecStreams;
    if (m_reference.bBrokenOff) {
        Require(lResult == 0 || lResult == 4002 || lResult == 4006 || lResult == 4011,
                "a long walk returns 0, 4002, 4006 or 4011");
        Require(vecStreams.size() >= vecWanted.size() && vecStreams.size() <= c_dwBudget,
                "a long walk finds at least the streams of the reference");
        Require((lResult == 4011) <= (vecStreams.size() == c_dwBudget),
                "4011 is returned only if the list of streams is full");
    } else {
        Require(lResult == m_reference.lResult, "the open returns the code of the reference");
        Require(vecStreams.size() == vecWanted.size(),
                "there are as many streams as in the reference");
        Require(m_pHandler->GetFileVersion() == m_reference.dwVersion &&
                    m_pHandler->GetCBTimeStamp() == m_reference.dwTimeStamp,
                "version and time stamp are those of the reference");
    }
    for (std::size_t i = 0; i < vecWanted.size(); ++i)
        Require(vecStreams[i] == vecWanted[i].aDescriber,
                "each describer is that of the reference");
    Require(m_pHandler->OpenDownloadedFile(c_szPath, vecStreams) == 4008,
            "a second open returns 4008");
}

void Run::CheckEffort() const {
    const MemoryDisk::File& aFile = TheFile();
    Require(aFile.qwReads <= 3 * WalkSteps(aFile) + 1, "the number of reads is bounded");
    Require(aFile.qwBytesRead <= WalkBytes(aFile), "the bytes read are bounded");
}

void Run::ReadAll() {
    const std::size_t nStreams = std::min(m_reference.vecStreams.size(), c_nStreams);
    for (std::size_t i = 0; i < nStreams; ++i) ReadStream(m_reference.vecStreams[i]);
    Read({1, 1, 0, 2}, 0, 1);  // this stream may exist or not
    CheckLengths();
    m_pHandler->CloseAllRecordFiles();
    if (nStreams == 0) return;
    unsigned char aByte[1];
    Require(m_pHandler->ReadData(InfoOf(m_reference.vecStreams[0].aDescriber), aByte, 0, 1) == 4007,
            "a read after the close returns 4007");
}

/// The first call may fail at the bad bytes. All calls must return the same code.
void Run::CheckLengths() {
    if (m_reference.bBrokenOff) return;
    const std::size_t nStreams = std::min(m_reference.vecStreams.size(), c_nStreams);
    for (std::size_t i = 0; i < nStreams; ++i) {
        const tagDataInfo aInfo = InfoOf(m_reference.vecStreams[i].aDescriber);
        CmUint32 dwLength = 0;
        Require(m_pHandler->GetStreamLength(aInfo, dwLength) == 0,
                "the length of a known stream is returned");
        Require(dwLength == m_reference.PlayedLength(*m_reference.Find(aInfo)),
                "the length is that of the reference");
    }
}

/// Reads at the critical positions: the end of the stream's bytes according to the header and to
/// the file, and the limits of 32 bits.
void Run::ReadStream(const Reference::Stream& aStream) {
    const std::uint64_t qwBegin = aStream.dwDataOffset;
    const std::uint64_t qwSaid = m_reference.dwFileSize;
    const std::uint64_t qwThere = TheFile().strBytes.size();
    const std::uint64_t qwRoom = qwSaid > qwBegin ? qwSaid - qwBegin : 0;
    const std::uint64_t qwReal = qwThere > qwBegin ? qwThere - qwBegin : 0;
    const tagDataInfo aInfo = InfoOf(aStream.aDescriber);
    Read(aInfo, 0, 1);
    Read(aInfo, 0, qwRoom);
    Read(aInfo, 0, qwRoom + 1);
    Read(aInfo, 0, c_dwEnd);
    Read(aInfo, qwReal > 0 ? qwReal - 1 : 0, 3);
    Read(aInfo, 0xFFFFFFFF - qwBegin, 1 + Random() % 2 * c_dwEnd);
    tagDataInfo aOther = aInfo;
    aOther.byFileType = static_cast<std::uint8_t>(Random());
    const CmUint32 dwOffset = Random() % static_cast<CmUint32>(qwReal + 2);
    Read(aOther, dwOffset, Random() % static_cast<CmUint32>(qwReal + 2));
    if (Random() % 4 == 0) aOther.dwFileID ^= 1U << Random() % 32;
    Read(aOther, dwOffset, c_dwEnd);
}

void Run::Read(const tagDataInfo& aInfo, std::uint64_t qwOffset, std::uint64_t qwLength) {
    const auto dwOffset = static_cast<CmUint32>(qwOffset);
    const auto dwLength = static_cast<CmUint32>(qwLength);
    // Exactly large enough, so that the sanitizer reports any further byte.
    const std::size_t nBuffer = std::min<std::size_t>(dwLength, TheFile().strBytes.size());
    std::unique_ptr<unsigned char[]> pBuffer(new unsigned char[nBuffer]);
    const unsigned char* const lpBuffer = pBuffer.get();
    const CmInt32 lResult = m_pHandler->ReadData(aInfo, pBuffer.get(), dwOffset, dwLength);
    if (lResult == 0) pBuffer.release();

    CCmString strWanted;
    const CmInt32 lWanted = m_reference.Read(aInfo, dwOffset, dwLength, strWanted);
    // The reference does not know the streams after the point where it stopped.
    if (m_reference.bBrokenOff && !m_reference.Find(aInfo)) {
        m_sink.m_pData.reset();
        return;
    }
    Require(lResult == lWanted, "a read returns the code of the reference");
    Require((m_sink.m_pData != nullptr) == (lResult == 0),
            "a read has a data callback exactly if it returns 0");
    if (lResult != 0) return;
    Require(m_sink.m_pData.get() == lpBuffer, "the data callback has the buffer of the read");
    Require(m_sink.m_dwLength == strWanted.size() &&
                std::memcmp(lpBuffer, strWanted.data(), strWanted.size()) == 0,
            "a read returns the bytes of the reference");
    m_sink.m_pData.reset();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* lpBytes, std::size_t dwSize) {
    static const bool s_bTraced =
        CCmT120Trace::instance()->SetSink([](CmInt32, const char*) {}) == 0;
    Require(s_bTraced, "the trace sink is set");
    Run aRun(ShapeFile(lpBytes, dwSize));
    aRun.Open();
    aRun.ReadAll();
    return 0;
}
