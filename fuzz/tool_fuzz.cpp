#include <map>
#include <set>
#include <tuple>

#include "fuzz/MemoryFile.h"
#include "fuzz/Reference.h"
#include "fuzz/Target.h"
#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Findings.h"
#include "tools/cachefile/Layout.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/Streams.h"

// Has the tool examine any bytes as a container and take it apart. Its findings and layout are held
// against the reference reader, and the extracted files against the bytes that lie there.

namespace {

std::map<std::string, std::string> s_mapFiles;  // what was extracted, by name

}  // namespace

// Files are written into memory.
COutputFile::COutputFile(std::filesystem::path aPath, bool bReplace)
    : m_path(std::move(aPath)), m_bReplace(bReplace) {
    Require(!m_bReplace, "nobody has asked to write over files");
    Require(s_mapFiles.emplace(m_path.filename().string(), "").second, "a file is written once");
}
COutputFile::~COutputFile() = default;
void COutputFile::Write(const void* lpData, std::size_t nLength) {
    s_mapFiles[m_path.filename().string()].append(static_cast<const char*>(lpData), nLength);
}
void COutputFile::Finish() { m_bFinished = true; }
void RequireFree(const std::filesystem::path&, bool) {}
void RemoveAbandoned(const std::filesystem::path&, const std::set<std::string>&) {}

namespace {

constexpr char c_szPath[] = "any.container";

class Check {
 public:
    /// bPrint: have the findings printed too, which takes time.
    explicit Check(bool bPrint) : m_bPrint(bPrint) {}

    void Run();

 private:
    void CheckIndex() const;
    void CheckRegions() const;
    void CheckFindings() const;
    bool CheckOverlap(const tagExtractOptions& aOptions) const;
    void CheckExtracted();
    std::uint64_t Size() const { return MemoryFile::Instance().strBytes.size(); }

    const bool m_bPrint;
    const Reference m_reference;
    tagRecording m_recording;
    bool m_bError = false;               // the doctor's
    bool m_bMissing = false;             // something of a stream isn't there
    std::vector<CmUint32> m_vecLengths;  // of the streams
};

void Check::Run() {
    try {
        m_recording = LoadRecording(c_szPath);
    } catch (const CFailure&) {
        Require(!m_reference.IsHeader(), "a container can be examined");
        return;
    }
    m_bError = Examine(m_recording).qwErrors > 0;
    if (m_bPrint) {
        tagDoctorOptions aOptions;
        aOptions.strPath = c_szPath;
        const int nDoctor = Doctor(aOptions);
        Require(nDoctor == Exit_Damage || (nDoctor == Exit_Done && !m_bError), "the doctor's end");
    }
    Require(m_reference.IsHeader() || m_bError, "what is no container is an error");
    if (!m_reference.IsHeader()) return;
    CheckIndex();
    std::vector<Reference::Entry> vecEntries;
    for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) {
        const tagIndexEntry& a = m_recording.pIndex->GetEntry(i);
        vecEntries.push_back(
            {a.dwOffset, a.aEntry.wTag, a.aEntry.dwDataOffset, a.aEntry.dwStreamSize});
    }
    m_vecLengths = m_reference.Lengths(vecEntries);
    CheckRegions();
    CheckExtracted();
    CheckFindings();
}

/// The tool goes on behind a conf header that ends the reader's walk, and stops at a circle.
void Check::CheckIndex() const {
    const CContainerIndex& aIndex = *m_recording.pIndex;
    const auto& vecWanted = m_reference.vecEntries;
    Require(aIndex.GetEntryCount() == m_recording.vecStreams.size(), "an entry, a stream");
    Require(aIndex.GetEntryCount() >= vecWanted.size(), "the number of entries");
    if (m_reference.lResult == 0 && !m_reference.bBrokenOff)
        Require(aIndex.GetEntryCount() == vecWanted.size(), "the number of entries");
    Require(!m_reference.bCircle || m_reference.bBrokenOff ||
                aIndex.GetEndOfWalk() == CContainerIndex::Walk_Circle,
            "a circle is noticed");
    for (std::size_t i = 0; i < vecWanted.size(); ++i) {
        const tagIndexEntry& aEntry = aIndex.GetEntry(i);
        Require(std::tuple(aEntry.dwOffset, aEntry.aEntry.wTag, aEntry.aEntry.dwDataOffset) ==
                    std::tuple(vecWanted[i].qwOffset, vecWanted[i].wTag, vecWanted[i].dwDataOffset),
                "an entry");
    }
}

void Check::CheckRegions() const {
    std::uint64_t qwAt = 0;
    for (const tagRegion& aRegion : LayOutRegions(m_recording)) {
        Require(aRegion.qwBegin < aRegion.qwEnd, "a region has bytes");
        if (aRegion.aKind == tagRegion::Overlap) {
            Require(aRegion.qwEnd <= qwAt, "an overlap lies on something");
            continue;
        }
        Require(aRegion.qwBegin == qwAt, "regions have no holes");
        qwAt = aRegion.qwEnd;
    }
    Require(qwAt == std::max<std::uint64_t>(m_reference.dwFileSize, Size()), "all is covered");
}

/// An error means that a reader refuses the container, or that bytes are missing.
void Check::CheckFindings() const {
    if (m_reference.bBrokenOff) return;
    Require(m_bError || (m_reference.lResult == 0 && !m_bMissing), "damage is an error");
    bool bDamage = m_bMissing || m_reference.lResult != 0 || m_reference.bCircle ||
                   Size() < m_reference.dwFileSize;
    for (const tagStream& aStream : m_recording.vecStreams)
        bDamage = bDamage || (aStream.bKnown && aStream.qwOffset > m_reference.dwFileSize);
    Require(bDamage || !m_bError, "an error is damage");
}

/// Whether the files would need more bytes than there are: that is refused unless it is allowed.
bool Check::CheckOverlap(const tagExtractOptions& aOptions) const {
    std::set<std::string> setSeen;
    std::uint64_t qwSum = 0;
    for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) {
        const tagStream& a = m_recording.vecStreams[i];
        if (a.bKnown && setSeen.insert(StreamFileName(a.aDescriber)).second && a.qwOffset < Size())
            qwSum += std::min<std::uint64_t>(m_vecLengths[i], Size() - a.qwOffset);
    }
    if (qwSum <= Size()) return false;
    try {
        Extract(aOptions);
    } catch (const CFailure&) {
        Require(s_mapFiles.empty(), "nothing is written");
        return true;
    }
    Require(false, "streams that overlap too much are refused");
    return true;
}

void Check::CheckExtracted() {
    s_mapFiles.clear();
    tagExtractOptions aOptions;
    aOptions.strPath = c_szPath;
    aOptions.strDirectory = ".";
    aOptions.aProgress = ProgressMode::Never;
    aOptions.bAllowOverlap = CheckOverlap(aOptions);
    const int nExit = Extract(aOptions);
    std::set<std::string> setSeen;
    const MemoryFile& aFile = MemoryFile::Instance();
    for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) {
        const tagStream& aStream = m_recording.vecStreams[i];
        if (!aStream.bKnown || !setSeen.insert(StreamFileName(aStream.aDescriber)).second) continue;
        const auto it = s_mapFiles.find(StreamFileName(aStream.aDescriber));
        Require((it != s_mapFiles.end()) == (aStream.qwOffset <= Size()),
                "what is there has a file");
        const std::uint64_t qwWanted = m_vecLengths[i];
        std::string strThere;
        if (aStream.qwOffset < Size()) strThere = aFile.strBytes.substr(aStream.qwOffset, qwWanted);
        m_bMissing = m_bMissing || strThere.size() < qwWanted || aStream.qwOffset > Size();
        const bool bBad = std::max(aStream.qwOffset, aFile.qwBadFrom) <
                          std::min(aStream.qwOffset + strThere.size(), aFile.qwBadTo);
        if (it != s_mapFiles.end())
            Require(it->second == (bBad ? "" : strThere), "the bytes of an extracted file");
        Require(nExit == Exit_Damage || !bBad, "bytes that can't be read are told");
        s_mapFiles.erase(StreamFileName(aStream.aDescriber));
    }
    Require(s_mapFiles.empty(), "there are no other files");
    Require(nExit == Exit_Damage || (nExit == Exit_Done && !m_bError && !m_bMissing),
            "the end of the extraction");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* lpBytes, std::size_t dwSize) {
    const std::uint64_t qwRandom = ShapeFile(lpBytes, dwSize);
    Check aCheck(qwRandom % 8 == 0);
    aCheck.Run();
    return 0;
}
