#include "tools/cachefile/RecoveryNotes.h"

#include "tools/cachefile/Budgets.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Streams.h"

namespace {

Json RecoveredStream(const tagNotes& aNotes, const tagPiece& aPiece) {
    Json aStream = aNotes.FieldsOf(aPiece.Name());
    NameStream(aStream, aPiece.aDescriber);
    const bool bVerified = aPiece.aState == tagPiece::Verified;
    aStream[Noted::c_szBytes] = aPiece.qwPresent;
    aStream[Noted::c_szChecksum] = bVerified ? Json(aPiece.strChecksum) : Json(nullptr);
    aStream[Noted::c_szRecovered] = PieceStateName(aPiece.aState);
    aStream["missing_bytes"] = aPiece.qwMissing;
    return aStream;
}

Json Losses(const tagRecovery& aRecovery) {
    Json aLosses = aRecovery.vecLosses;
    std::uint64_t qwMore = 0;
    for (const tagPiece& aPiece : aRecovery.vecPieces)
        for (const std::string& strFault : aPiece.vecFaults)
            if (aLosses.size() < c_qwMaxWarnings)
                aLosses.push_back(aPiece.Name() + ": " + strFault);
            else
                ++qwMore;
    if (qwMore > 0) aLosses.push_back("and " + Grouped(qwMore) + " more");
    return aLosses;
}

}  // namespace

Json MakeRecoveryNotes(const tagRecording& aRecording, const tagNotes& aNotes,
                       const tagRecovery& aRecovery) {
    Json aDocument = aNotes.mapStreams.empty() ? NewNotes() : aNotes.aDocument;
    aDocument[Noted::c_szState] = Noted::c_szRecovered;
    aDocument["recovered_from"] = aRecording.strPath;
    aDocument["losses"] = Losses(aRecovery);
    Json& aStreams = aDocument[Noted::c_szStreams] = Json::array();
    for (const tagPiece& aPiece : aRecovery.vecPieces)
        if (aPiece.aState != tagPiece::Missing &&
            aPiece.strFile == StreamFileName(aPiece.aDescriber))
            aStreams.push_back(RecoveredStream(aNotes, aPiece));
    return aDocument;
}
