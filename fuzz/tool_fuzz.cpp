#include <algorithm>
#include <map>
#include <set>

#include "fuzz/Reference.h"
#include "fuzz/Target.h"
#include "tools/cachefile/Checksum.h"
#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Layout.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/Recovery.h"
#include "tools/cachefile/RecoveryNotes.h"
#include "tools/cachefile/Streams.h"

// The tool checks the input as a container, recovers its streams, with and without known checksums,
// sums them, and extracts it. What it writes is compared with the bytes of the input. Every step
// must stay within the budgets of docs/limits.md.

namespace {

std::map<std::string, std::string> s_mapFiles;  // the extracted files by name

}  // namespace

// Functions of the tool that write files; these write into memory.
COutputFile::COutputFile(std::filesystem::path aPath, bool bReplace)
    : m_path(std::move(aPath)), m_bReplace(bReplace) {
    Require(!m_bReplace, "files are not replaced unless that is requested");
    Require(s_mapFiles.emplace(m_path.filename().string(), "").second, "each file is written once");
}
COutputFile::~COutputFile() = default;
void COutputFile::Write(const void* lpData, std::size_t nLength) {
    s_mapFiles[m_path.filename().string()].append(static_cast<const char*>(lpData), nLength);
}
void COutputFile::Finish() { m_bFinished = true; }
void RequireFree(const std::filesystem::path&, bool) {}
void RemoveAbandoned(const std::filesystem::path&, const std::set<std::string>&) {}

namespace {

std::uint64_t Size() { return TheFile().strBytes.size(); }

void CheckRegions(const tagRecording& aRecording) {
    std::uint64_t qwAt = 0;
    for (const tagRegion& aRegion : LayOutRegions(aRecording)) {
        Require(aRegion.qwBegin < aRegion.qwEnd, "no region is empty");
        const bool bOverlap = aRegion.aKind == tagRegion::Overlap;
        Require(bOverlap ? aRegion.qwEnd <= qwAt : aRegion.qwBegin == qwAt,
                "each region begins where the one before it ends, unless it is an overlap");
        if (!bOverlap) qwAt = aRegion.qwEnd;
    }
    const std::uint64_t qwDeclared = aRecording.pIndex->GetFileHeader().dwFileSize;
    Require(qwAt == std::max(qwDeclared, Size()), "the regions cover the whole file");
}

/// bError: the check has found an error.
void CheckExtracted(const tagRecording& aRecording, bool bError) {
    const MemoryDisk::File& aFile = TheFile();
    std::map<std::string, std::string> mapWanted;
    std::set<std::string> setSeen;
    std::uint64_t qwSum = 0;
    bool bMissing = false;
    for (const tagStream& a : aRecording.vecStreams) {
        const std::string strName = StreamFileName(a.aDescriber);
        if (!a.bKnown || !setSeen.insert(strName).second) continue;
        bMissing = bMissing || a.qwOffset > Size();
        if (a.qwOffset > Size()) continue;
        const auto nThere = static_cast<std::size_t>(std::min(a.qwExtent, Size() - a.qwOffset));
        const std::string strThere =
            aFile.strBytes.substr(static_cast<std::size_t>(a.qwOffset), nThere);
        const bool bBad = std::max(a.qwOffset, aFile.qwBadFrom) <
                          std::min(a.qwOffset + strThere.size(), aFile.qwBadTo);
        bMissing = bMissing || bBad || strThere.size() < a.qwExtent;
        mapWanted[strName] = bBad ? "" : strThere;
        qwSum += strThere.size();
    }
    s_mapFiles.clear();
    tagExtractOptions aOptions;
    aOptions.strPath = c_szPath;
    aOptions.strDirectory = ".";
    aOptions.aProgress = ProgressMode::Never;
    aOptions.bAllowOverlap = qwSum <= Size();
    int nExit = Exit_Damage;
    try {
        nExit = Extract(aOptions);
        Require(qwSum <= Size(), "files that are together larger than the container are refused");
    } catch (const CFailure&) {
        Require(qwSum > Size() && s_mapFiles.empty(),
                "nothing else is refused, and a refusal writes no file");
        aOptions.bAllowOverlap = true;
        nExit = Extract(aOptions);
    }
    Require(s_mapFiles == mapWanted, "the extracted files have the bytes of the container");
    Require(nExit == Exit_Damage || (nExit == Exit_Done && !bError && !bMissing),
            "extract reports damage if there is an error or bytes are missing");
}

/// Limits the bytes that are read while it exists: those of nWalks walks of the index, and qwTimes
/// times the file.
class CReadBudget {
 public:
    CReadBudget(std::uint64_t nWalks, std::uint64_t qwTimes)
        : m_qwMax(TheFile().qwBytesRead + nWalks * WalkBytes(TheFile()) + qwTimes * Size()) {}
    ~CReadBudget() { Require(TheFile().qwBytesRead <= m_qwMax, "the bytes read are bounded"); }
    CReadBudget(const CReadBudget&) = delete;
    CReadBudget& operator=(const CReadBudget&) = delete;

 private:
    const std::uint64_t m_qwMax;
};

std::string SumOf(std::uint64_t qwOffset, std::uint64_t qwLength) {
    const std::string& strBytes = TheFile().strBytes;
    CChecksum aChecksum;
    if (qwLength > 0) aChecksum.Add(strBytes.data() + qwOffset, static_cast<std::size_t>(qwLength));
    return aChecksum.GetText();
}

/// Notes for some streams, and for one without an entry. Most have the checksum of their bytes.
NotedStreams MakeKnown(const tagRecording& aRecording, std::uint64_t qwRandom) {
    NotedStreams mapKnown;
    for (const tagStream& a : aRecording.vecStreams) {
        qwRandom = qwRandom * 6364136223846793005 + 1;
        const std::uint64_t qwLength = std::min(a.qwPresent, Size() - std::min(a.qwOffset, Size()));
        const bool bLost = qwRandom >> 60 == 0;
        if (!a.bKnown || qwRandom >> 63 != 0) continue;
        mapKnown[bLost ? "9:9:4" : a.Name()] = {
            qwLength, SumOf(a.qwOffset, qwRandom >> 61 == 1 ? qwLength / 2 : qwLength)};
    }
    return mapKnown;
}

void CheckRecovery(const tagRecording& aRecording, const NotedStreams& mapKnown) {
    const CReadBudget aBudget(1, 4 + 4);
    std::uint64_t qwSum = 0;
    const tagRecovery aRecovery = RecoverContainer(aRecording, mapKnown);
    for (const tagPiece& a : aRecovery.vecPieces) {
        if (a.aState == tagPiece::Missing) continue;
        Require(a.qwPresent == 0 || a.qwOffset + a.qwPresent <= Size(), "its bytes exist");
        const auto itKnown = mapKnown.find(a.Name());
        if (a.aState == tagPiece::Verified)
            Require(itKnown != mapKnown.end() && itKnown->second.strChecksum == a.strChecksum &&
                        SumOf(a.qwOffset, a.qwPresent) == a.strChecksum,
                    "verified bytes have the known checksum");
        qwSum += a.qwPresent;
        ReadPiece(aRecording, a, [](const unsigned char*, std::size_t) {});
    }
    Require(qwSum <= 4 * Size(), "what is recovered is bounded");
    const Json aNotes = MakeRecoveryNotes(aRecording, {}, aRecovery);
    Require(ParseNotes(aNotes.dump(-1, ' ', true)).aState == tagNotes::Recovered,
            "the notes of what was recovered can be read");
    Require(aNotes.at("losses").size() <= aRecovery.vecLosses.size() + c_qwMaxWarnings + 1,
            "the number of noted losses is bounded");
}

void CheckSums(const tagRecording& aRecording) {
    const CReadBudget aBudget(1, 1);
    tagSumsOptions aOptions;
    aOptions.strPath = c_szPath;
    aOptions.aProgress = ProgressMode::Never;
    std::uint64_t qwSum = 0;
    for (const tagStream& a : aRecording.vecStreams)
        if (a.bKnown && a.nHiddenBy == 0) qwSum += a.qwPresent;
    try {
        const int nExit = Sums(aOptions);
        Require(qwSum <= Size(), "streams that share too many bytes are not read");
        Require(nExit == Exit_Done || nExit == Exit_Damage, "sums succeeds");
    } catch (const CFailure&) {
        Require(qwSum > Size(), "nothing else is refused");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* lpBytes, std::size_t dwSize) {
    const std::uint64_t qwRandom = ShapeFile(lpBytes, dwSize);
    const MemoryDisk::File& aFile = TheFile();
    const bool bHeader = Reference(aFile.strBytes, aFile.qwBadFrom, aFile.qwBadTo).IsHeader();
    tagRecording aRecording;
    try {
        const CReadBudget aBudget(1, 0);
        aRecording = LoadRecording(c_szPath);
    } catch (const CFailure&) {
        Require(!bHeader, "a file with a valid header can be examined");
        return 0;
    }
    const tagFindings aFindings = Examine(aRecording);
    const bool bError = aFindings.qwErrors > 0;
    for (const tagTotal& aTotal : aFindings.vecTotals)
        Require(aTotal.qwCount - aTotal.qwOnlyCounted <= c_qwMaxOfACode,
                "the lines of each code are bounded");
    Require(bHeader || bError, "a file without a valid header has an error");
    if (qwRandom % 8 == 0) {  // printing takes time
        tagDoctorOptions aOptions;
        aOptions.strPath = c_szPath;
        const int nDoctor = Doctor(aOptions);
        Require(nDoctor == Exit_Damage || (nDoctor == Exit_Done && !bError),
                "doctor reports damage if there is an error");
    }
    CheckRecovery(aRecording, {});
    CheckRecovery(aRecording, MakeKnown(aRecording, qwRandom));
    if (!bHeader) return 0;
    CheckSums(aRecording);
    CheckRegions(aRecording);
    CheckExtracted(aRecording, bError);
    return 0;
}
