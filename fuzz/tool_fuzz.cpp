#include <algorithm>
#include <map>
#include <set>

#include "fuzz/Reference.h"
#include "fuzz/Target.h"
#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Layout.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/Recovery.h"
#include "tools/cachefile/Streams.h"

// The tool checks the input as a container, recovers its streams, and extracts it. The extracted
// files are compared with the bytes of the input.

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

void CheckRecovery(const tagRecording& aRecording) {
    std::uint64_t qwSum = 0;
    for (const tagPiece& a : RecoverContainer(aRecording, {}).vecPieces) {
        if (a.aState == tagPiece::Missing) continue;
        Require(a.qwPresent == 0 || a.qwOffset + a.qwPresent <= Size(), "its bytes exist");
        Require(a.aState != tagPiece::Verified, "there are no checksums");
        qwSum += a.qwPresent;
    }
    Require(qwSum <= 4 * Size(), "what is recovered is bounded");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* lpBytes, std::size_t dwSize) {
    const std::uint64_t qwRandom = ShapeFile(lpBytes, dwSize);
    const MemoryDisk::File& aFile = TheFile();
    const bool bHeader = Reference(aFile.strBytes, aFile.qwBadFrom, aFile.qwBadTo).IsHeader();
    tagRecording aRecording;
    try {
        aRecording = LoadRecording(c_szPath);
    } catch (const CFailure&) {
        Require(!bHeader, "a file with a valid header can be examined");
        return 0;
    }
    const bool bError = Examine(aRecording).qwErrors > 0;
    Require(bHeader || bError, "a file without a valid header has an error");
    if (qwRandom % 8 == 0) {  // printing takes time
        tagDoctorOptions aOptions;
        aOptions.strPath = c_szPath;
        const int nDoctor = Doctor(aOptions);
        Require(nDoctor == Exit_Damage || (nDoctor == Exit_Done && !bError),
                "doctor reports damage if there is an error");
    }
    CheckRecovery(aRecording);
    if (!bHeader) return 0;
    CheckRegions(aRecording);
    CheckExtracted(aRecording, bError);
    return 0;
}
