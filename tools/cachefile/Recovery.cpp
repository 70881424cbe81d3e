#include "tools/cachefile/Recovery.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

#include "tools/cachefile/Checksum.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Salvage.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

/// Damaged entries may overlap so that each of thousands has most of the container. In a good
/// container each byte belongs to one stream, so this leaves room for some that are found twice.
constexpr std::uint64_t c_qwMaxTimes = 4;

/// The budget of bytes does not limit the tries for short streams. This many reads take seconds.
constexpr std::size_t c_nMaxTries = 1000000;

/// qwSize is the size of the file. A stream that begins at its very end may have been empty.
void Judge(tagPiece& aPiece, std::uint64_t qwSize) {
    if (aPiece.qwMissing > 0)
        aPiece.vecFaults.push_back(Grouped(aPiece.qwMissing) + " of " +
                                   Grouped(aPiece.qwPresent + aPiece.qwMissing) +
                                   " bytes are missing");
    const bool bFaults = !aPiece.vecFaults.empty();
    aPiece.aState = bFaults ? tagPiece::Damaged : tagPiece::Unverified;
    if (bFaults && aPiece.qwPresent == 0 && aPiece.qwOffset != qwSize)
        aPiece.aState = tagPiece::Missing;
}

/// Adds what is known to have existed but was not found.
void AddMissing(tagRecovery& aRecovery, const NotedStreams& mapKnown) {
    std::set<std::string> setFound;
    for (const tagPiece& aPiece : aRecovery.vecPieces) setFound.insert(aPiece.Name());
    for (const auto& [strName, aKnown] : mapKnown) {
        if (setFound.count(strName) > 0) continue;
        tagPiece aPiece;
        aPiece.aDescriber = *ParseStreamName(strName);
        aPiece.qwMissing = aKnown.qwBytes.value_or(0);
        aPiece.aState = tagPiece::Missing;
        aPiece.aFinder = tagPiece::NotFound;
        aPiece.vecFaults.push_back("it was not found");
        aRecovery.vecPieces.push_back(std::move(aPiece));
    }
}

/// Reads the record file if its checksum is known. The piece has a checksum then if both agree.
void CompareFile(const tagRecording& aRecording, const tagNotedStream& aKnown, tagPiece& aPiece) {
    if (aKnown.qwBytes && *aKnown.qwBytes > aPiece.qwPresent)
        aPiece.qwMissing = *aKnown.qwBytes - aPiece.qwPresent;
    CChecksum aChecksum;
    if (!aKnown.strChecksum.empty())
        ReadPiece(aRecording, aPiece, [&](const unsigned char* lpData, std::size_t nLength) {
            aChecksum.Add(lpData, nLength);
        });
    const std::string strFault = NoteFault(aKnown, aPiece.qwPresent, aChecksum.GetText());
    if (strFault.empty())
        aPiece.strChecksum = aKnown.strChecksum;
    else if (aPiece.qwMissing == 0)
        aPiece.vecFaults.push_back(strFault);
}

/// If every known stream is verified, the signs of other losses do not matter.
void ForgetLosses(tagRecovery& aRecovery, const NotedStreams& mapKnown) {
    const auto nVerified = static_cast<std::size_t>(
        std::count_if(aRecovery.vecPieces.begin(), aRecovery.vecPieces.end(),
                      [](const tagPiece& a) { return a.aState == tagPiece::Verified; }));
    if (!mapKnown.empty() && nVerified == mapKnown.size()) aRecovery.vecLosses.clear();
}

/// Turns the salvaged streams of a container into pieces. Those with a known checksum come first.
class CContainerRecovery {
 public:
    CContainerRecovery(const tagRecording& aRecording, const NotedStreams& mapKnown)
        : m_recording(aRecording),
          m_mapKnown(mapKnown),
          m_salvage(SalvageStreams(*aRecording.pIndex)),
          m_vecTaken(m_salvage.vecStreams.size()) {}

    tagRecovery Run() {
        m_recovery.vecLosses = m_salvage.vecLosses;
        for (std::size_t i = 0; i < m_vecTaken.size(); ++i) TakeIfVerified(i);
        FindLostEntries();
        for (std::size_t i = 0; i < m_vecTaken.size(); ++i)
            if (!m_vecTaken[i]) TakeUnverified(m_salvage.vecStreams[i]);
        std::stable_sort(m_recovery.vecPieces.begin(), m_recovery.vecPieces.end(),
                         [](const auto& a, const auto& b) { return a.qwOffset < b.qwOffset; });
        AddMissing(m_recovery, m_mapKnown);
        ForgetLosses(m_recovery, m_mapKnown);
        return std::move(m_recovery);
    }

 private:
    bool HasChecksum(std::uint64_t qwOffset, std::uint64_t qwLength,
                     const std::string& strChecksum);
    void TakeIfVerified(std::size_t nIndex);
    void AddPlace(std::uint64_t qwPlace) {
        if (m_setTried.insert(qwPlace).second) m_setPlaces.insert(qwPlace);
    }
    void CollectPlaces();
    void FindLostEntries();
    void FindByChecksum(const std::string& strName, const tagNotedStream& aKnown,
                        const std::set<std::uint64_t>& setPlaces);
    void TakeUnverified(const tagSalvagedStream& aStream);
    void AddVerified(const std::string& strName, std::uint64_t qwOffset, std::uint64_t qwLength,
                     tagPiece::Finder aFinder);
    bool IsInBudget(std::uint64_t& qwUsed, std::uint64_t qwMore) const {
        if (qwMore > c_qwMaxTimes * m_recording.qwSize - qwUsed) return false;
        qwUsed += qwMore;
        return true;
    }
    void Add(tagPiece aPiece);

    const tagRecording& m_recording;
    const NotedStreams& m_mapKnown;
    const tagSalvage m_salvage;
    std::vector<bool> m_vecTaken;                // the salvaged streams that are verified
    std::map<std::string, unsigned> m_mapNames;  // how many pieces have a name
    std::set<std::pair<std::uint64_t, std::uint64_t>> m_setVerified;  // places and lengths
    std::set<std::array<std::uint64_t, 4>> m_setUnverified;           // also type, kind and id
    std::set<std::uint64_t> m_setPlaces;  // where streams may begin, and none was looked for
    std::set<std::uint64_t> m_setTried;   // the same, and where they were looked for
    std::size_t m_nTries = 0;             // to find a stream at a place
    std::uint64_t m_qwRead = 0;
    std::uint64_t m_qwWritten = 0;
    tagRecovery m_recovery;
};

/// Reads bytes only if all of them exist and the budget allows it.
bool CContainerRecovery::HasChecksum(std::uint64_t qwOffset, std::uint64_t qwLength,
                                     const std::string& strChecksum) {
    if (strChecksum.empty()) return false;
    const bool bThere = qwOffset <= m_recording.qwSize && qwLength <= m_recording.qwSize - qwOffset;
    if (qwLength > 0 && !bThere) return false;  // an empty stream may begin anywhere
    if (!IsInBudget(m_qwRead, qwLength)) return false;
    CChecksum aChecksum;
    ReadPart(
        *m_recording.pIndex, qwOffset, qwLength, "the container",
        [&](const unsigned char* lpData, std::size_t nLength) { aChecksum.Add(lpData, nLength); });
    return aChecksum.GetText() == strChecksum;
}

void CContainerRecovery::Add(tagPiece aPiece) {
    const std::string strFile = StreamFileName(aPiece.aDescriber);
    if (aPiece.aState != tagPiece::Missing) {
        const unsigned nSame = ++m_mapNames[aPiece.Name()];
        aPiece.strFile = nSame == 1 ? strFile : strFile + "." + std::to_string(nSame);
    }
    m_recovery.vecPieces.push_back(std::move(aPiece));
}

void CContainerRecovery::AddVerified(const std::string& strName, std::uint64_t qwOffset,
                                     std::uint64_t qwLength, tagPiece::Finder aFinder) {
    tagPiece aPiece;
    aPiece.aDescriber = *ParseStreamName(strName);
    aPiece.strChecksum = m_mapKnown.at(strName).strChecksum;
    aPiece.qwOffset = qwOffset;
    aPiece.qwPresent = qwLength;
    aPiece.aState = tagPiece::Verified;
    aPiece.aFinder = aFinder;
    if (!IsInBudget(m_qwWritten, qwLength)) return;
    if (qwLength > 0) m_setVerified.insert({qwOffset, qwLength});
    AddPlace(qwOffset + qwLength);
    Add(std::move(aPiece));
}

void CContainerRecovery::TakeIfVerified(std::size_t nIndex) {
    const tagSalvagedStream& a = m_salvage.vecStreams[nIndex];
    const std::string strName = StreamName(a.aDescriber);
    const auto itKnown = m_mapKnown.find(strName);
    if (itKnown == m_mapKnown.end() || m_mapNames.count(strName) > 0) return;
    const std::uint64_t qwLength = itKnown->second.qwBytes.value_or(a.qwLength);
    if (!HasChecksum(a.qwOffset, qwLength, itKnown->second.strChecksum)) return;
    m_vecTaken[nIndex] = true;
    AddVerified(strName, a.qwOffset, qwLength,
                a.bSearched ? tagPiece::BySearch : tagPiece::ByIndex);
}

void CContainerRecovery::CollectPlaces() {
    for (const tagSalvagedStream& a : m_salvage.vecStreams) {
        AddPlace(a.qwOffset);
        AddPlace(a.qwOffset + a.qwLength);
    }
    for (const auto& [qwBegin, qwEnd] : m_salvage.vecUnused) AddPlace(qwBegin);
}

/// Looks where other streams begin and end, and where unused bytes begin: the name of an entry may
/// be damaged, or the entry may be lost. Where a stream ends that was found in this way, the next
/// one may begin.
void CContainerRecovery::FindLostEntries() {
    if (m_mapKnown.empty()) return;
    CollectPlaces();
    while (!m_setPlaces.empty() && m_nTries <= c_nMaxTries) {
        const std::set<std::uint64_t> setPlaces = std::move(m_setPlaces);
        m_setPlaces.clear();
        for (const auto& [strName, aKnown] : m_mapKnown)
            if (m_mapNames.count(strName) == 0) FindByChecksum(strName, aKnown, setPlaces);
    }
}

void CContainerRecovery::FindByChecksum(const std::string& strName, const tagNotedStream& aKnown,
                                        const std::set<std::uint64_t>& setPlaces) {
    if (!aKnown.qwBytes || aKnown.strChecksum.empty()) return;
    for (const std::uint64_t qwPlace : setPlaces) {
        if (++m_nTries > c_nMaxTries) return;
        if (m_setVerified.count({qwPlace, *aKnown.qwBytes}) == 0 &&
            HasChecksum(qwPlace, *aKnown.qwBytes, aKnown.strChecksum))
            return AddVerified(strName, qwPlace, *aKnown.qwBytes, tagPiece::ByChecksum);
    }
}

void CContainerRecovery::TakeUnverified(const tagSalvagedStream& aStream) {
    tagPiece aPiece;
    aPiece.aDescriber = aStream.aDescriber;
    aPiece.qwOffset = aStream.qwOffset;
    aPiece.qwPresent = aStream.qwPresent;
    aPiece.qwMissing = aStream.qwLength - aStream.qwPresent;
    aPiece.aFinder = aStream.bSearched ? tagPiece::BySearch : tagPiece::ByIndex;
    aPiece.vecFaults = aStream.vecFaults;
    const std::string strName = StreamName(aStream.aDescriber);
    if (m_setVerified.count({aStream.qwOffset, aStream.qwPresent}) > 0) return;
    const tagFileDescriber& aOf = aStream.aDescriber;
    const std::uint64_t qwKind = std::uint64_t{aOf.wDataType} << 8 | aOf.byFileType;
    if (!m_setUnverified.insert({qwKind, aOf.dwFileID, aStream.qwOffset, aStream.qwPresent}).second)
        return;
    const auto itKnown = m_mapKnown.find(strName);
    if (itKnown != m_mapKnown.end()) {
        const std::string strFault =
            itKnown->second.strChecksum.empty()
                ? NoteFault(itKnown->second, aPiece.qwPresent + aPiece.qwMissing, "")
                : "its checksum differs";
        if (!strFault.empty()) aPiece.vecFaults.push_back(strFault);
    }
    Judge(aPiece, m_recording.qwSize);
    if (m_mapNames.count(strName) > 0 && aPiece.aState != tagPiece::Missing) {
        aPiece.vecFaults.push_back("another entry names the same stream");
        aPiece.aState = tagPiece::Damaged;
    }
    if (aPiece.aState != tagPiece::Missing && !IsInBudget(m_qwWritten, aPiece.qwPresent)) {
        aPiece.vecFaults.push_back("it shares its bytes with too many others and is left out");
        aPiece.aState = tagPiece::Missing;
    }
    Add(std::move(aPiece));
}

}  // namespace

std::string tagPiece::Name() const { return StreamName(aDescriber); }

const char* PieceStateName(tagPiece::State aState) {
    static const char* const s_aNames[] = {"verified", "unverified", "damaged", "missing"};
    return s_aNames[aState];
}

tagRecovery RecoverContainer(const tagRecording& aRecording, const NotedStreams& mapKnown) {
    return CContainerRecovery(aRecording, mapKnown).Run();
}

tagRecovery RecoverDirectory(const tagRecording& aRecording, const NotedStreams& mapKnown) {
    tagRecovery aRecovery;
    for (const tagStream& aStream : aRecording.vecStreams) {
        tagPiece aPiece;
        aPiece.aDescriber = aStream.aDescriber;
        aPiece.strFile = StreamFileName(aStream.aDescriber);
        aPiece.qwPresent = aStream.qwPresent;
        const auto itKnown = mapKnown.find(aPiece.Name());
        const bool bKnown = itKnown != mapKnown.end();
        if (bKnown) CompareFile(aRecording, itKnown->second, aPiece);
        Judge(aPiece, aRecording.qwSize);
        if (aPiece.aState == tagPiece::Missing) aPiece.strFile.clear();
        if (bKnown && !aPiece.strChecksum.empty()) aPiece.aState = tagPiece::Verified;
        aRecovery.vecPieces.push_back(std::move(aPiece));
    }
    for (const std::string& strName : aRecording.vecNotFiles)
        aRecovery.vecLosses.push_back(Printable(strName) + " is not a regular file");
    AddMissing(aRecovery, mapKnown);
    return aRecovery;
}

std::uint64_t ReadPiece(const tagRecording& aRecording, const tagPiece& aPiece,
                        const TakeBytes& aTake) {
    if (aRecording.IsContainer())
        return ReadPart(*aRecording.pIndex, aPiece.qwOffset, aPiece.qwPresent, aPiece.Name(),
                        aTake);
    return ReadFile(System::NativePath(aRecording.strPath) / StreamFileName(aPiece.aDescriber),
                    aPiece.qwPresent, aTake);
}
