#include "tools/cachefile/RecoveryNotes.h"

#include "tools/cachefile/Streams.h"

namespace {

Json RecoveredStream(const tagNotes& aNotes, const tagPiece& aPiece) {
    const std::string strName = aPiece.Name();
    Json aStream;
    for (Json& aNoted : SelectNotes(aNotes, [&](const std::string& str) { return str == strName; }))
        aStream = std::move(aNoted);
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
    for (const tagPiece& aPiece : aRecovery.vecPieces)
        for (const std::string& strFault : aPiece.vecFaults)
            aLosses.push_back(aPiece.Name() + ": " + strFault);
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
