#include "tests/faults/Session.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>

#include "async/FileThreadManager.h"

namespace {

/// A trace line begins with class and operation. Lines of failed checks and of the creation of
/// handlers have other forms.
void ExpectLine(CmInt32, const char* lpText) {
    const Memory::Scope aOutside(false);
    const char* const lpColons = std::strstr(lpText, "::");
    const char* const lpArrow = std::strstr(lpText, "->");
    EXPECT_TRUE((*lpText == 'C' && lpColons && (!lpArrow || lpColons < lpArrow)) ||
                std::strstr(lpText, " Assert failed: ") ||
                std::strstr(lpText, "Low memory to create a C") == lpText)
        << lpText;
}

}  // namespace

CCmString Words(CmUint32 dwFirst, CmUint32 dwCount) {
    std::vector<CmUint32> vecWords(dwCount);
    std::iota(vecWords.begin(), vecWords.end(), dwFirst);
    return {reinterpret_cast<const char*>(vecWords.data()), dwCount * sizeof(CmUint32)};
}

const CCmString& FileModel::NextPiece(CmUint32 dwWords, CmUint32 dwHome) {
    m_vecPieces.push_back({m_dwNext, m_dwNext + dwWords, dwHome, false});
    m_strPiece = Words(m_dwNext, dwWords);
    m_dwNext += dwWords;
    return m_strPiece;
}

std::uint64_t FileModel::CountMissing() const {
    const CCmString strFile = Exists(m_strPath) ? ReadBytes(m_strPath) : CCmString();
    EXPECT_EQ(strFile.size() % 4, 0U) << m_strPath;
    std::vector<CmUint32> vecWords(strFile.size() / 4);
    strFile.copy(reinterpret_cast<char*>(vecWords.data()), vecWords.size() * 4);
    std::vector<char> vecThere(m_dwNext);
    CmUint32 dwLast = 0;  // the last word that was appended
    auto it = m_vecPieces.begin();
    for (std::size_t nAt = 0; nAt < vecWords.size(); ++nAt) {
        const CmUint32 dwWord = vecWords[nAt];
        if (dwWord == 0) continue;  // a hole; missing words are counted below
        if (dwWord >= it->dwEnd || dwWord < it->dwFirst)
            it = std::find_if(m_vecPieces.begin(), m_vecPieces.end() - 1,
                              [&](const Piece& aPiece) { return dwWord < aPiece.dwEnd; });
        const bool bAppended = it->dwHome == c_dwEnd;
        const CmUint32 dwHome = it->dwHome / 4 + (dwWord - it->dwFirst);
        if (dwWord >= m_dwNext || (bAppended ? dwWord <= dwLast : nAt != dwHome)) {
            ADD_FAILURE() << m_strPath << " at " << nAt * 4 << ": " << dwWord
                          << " was not written at this offset";
            break;
        }
        if (bAppended) dwLast = dwWord;
        vecThere[dwWord] = 1;
    }
    std::uint64_t qwMissing = 0;
    for (const Piece& aPiece : m_vecPieces) {
        const auto dwMissing = static_cast<CmUint32>(
            std::count(vecThere.begin() + aPiece.dwFirst, vecThere.begin() + aPiece.dwEnd, false));
        if (aPiece.bAccepted) qwMissing += 4U * dwMissing;
        EXPECT_TRUE(aPiece.dwHome != c_dwEnd || dwMissing == 0 ||
                    dwMissing == aPiece.dwEnd - aPiece.dwFirst)
            << m_strPath << ": a part of the append of word " << aPiece.dwFirst;
    }
    return qwMissing;
}

Session::Session(Mode aMode, std::set<CmInt32> aCodes, bool bCallbacksMayMiss)
    : m_aMode(aMode), m_codes(std::move(aCodes)), m_bCallbacksMayMiss(bCallbacksMayMiss) {
    const CCmT120Trace::Sink aSink(ExpectLine);  // allocates memory of the host
    const CCmCallerThread::WakeUp aWakeUp([] {});
    Do([&] { return CCmT120Trace::instance()->SetSink(aSink); });
    Do([] { return CCacheFileManager::Instance().SetTempHomeDir(".\\kvr2"), 0; });
    if (m_aMode == Sync) return;
    Do([] { return CCmCallerThread::Attach(); });
    Do([&] { return CCmCallerThread::SetWakeUp(aWakeUp); });
}

CmInt32 Session::Noted(CmInt32 lResult) {
    if (lResult == 0) return lResult;
    const Memory::Scope aOutside(false);
    m_bFailed = true;
    EXPECT_EQ(m_codes.count(lResult), 1U) << lResult;
    return lResult;
}

void Session::DoRead(CPlayFileHandler* pHandler, const tagDataInfo& aInfo,
                     const CCmString& strWhole, CmUint32 dwOffset, CmUint32 dwLength, bool bWhole) {
    auto* const lpBuffer = new unsigned char[dwLength];
    m_mapReads[lpBuffer] = {
        dwOffset < strWhole.size() ? strWhole.substr(dwOffset, dwLength) : CCmString(), bWhole};
    if (Do([&] { return pHandler->ReadData(aInfo, lpBuffer, dwOffset, dwLength); }) == 0) return;
    EXPECT_EQ(m_mapReads.erase(lpBuffer), 1U) << "refused and delivered";
    delete[] lpBuffer;
}

void Session::OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType aOpType,
                             CmInt32 aResult) {
    const Memory::Scope aOutside(false);
    ++m_aReports[aOpType];
    if (Noted(aResult) != 0) ++m_aFailures[aOpType];
}

void Session::OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo&) {
    const Memory::Scope aOutside(false);
    const auto it = m_mapReads.find(lpData);
    ASSERT_NE(it, m_mapReads.end()) << "not requested, or delivered twice";
    const Read aRead = std::move(it->second);
    m_mapReads.erase(it);
    const CCmString strBytes(reinterpret_cast<const char*>(lpData), dwLength);
    delete[] lpData;
    EXPECT_EQ(Difference(strBytes, aRead.strBytes.substr(0, dwLength)), "");
    if (dwLength < aRead.strBytes.size()) ++(aRead.bWhole ? m_nShort : m_nNotWritten);
}

void Session::Settle() {
    if (m_nOpens > 0) RunOn(CFileThreadManager::Instance()->GetPrimaryNFSThread(), nullptr);
    if (m_aMode == Async) Do([] { return CCmCallerThread::RunPending(); });
}

void Session::Finish(const std::vector<const FileModel*>& vecFiles) {
    Do([] { return CacheFileShutdown(); });
    if (m_aMode == Async) Do([] { return CCmCallerThread::Detach(); });
    CCmT120Trace::instance()->SetSink({});
    std::uint64_t qwMissing = 0;
    for (const FileModel* const pFile : vecFiles) qwMissing += pFile->CountMissing();
    const std::uint64_t qwLost = m_lost.Take();
    EXPECT_LE(qwMissing, qwLost) << "accepted bytes are missing and were not counted as lost";
    EXPECT_EQ(CCacheFileManager::GetPendingBytes(), 0U);
    if (m_codes.empty()) {
        EXPECT_EQ(qwLost, 0U);
    }
    EXPECT_LE(m_aReports[CCacheFileManager::Op_Open], m_nOpens);
    if (m_bCallbacksMayMiss) return;
    EXPECT_EQ(m_aReports[CCacheFileManager::Op_Open], m_nOpens);
    EXPECT_TRUE(m_mapReads.empty()) << "accepted and never delivered";
    EXPECT_TRUE(m_nShort <= m_aFailures[CCacheFileManager::Op_Read] ||
                m_aFailures[CCacheFileManager::Op_Open] > 0)
        << m_nShort << " reads returned less than the file has";
    EXPECT_TRUE(m_nNotWritten == 0 || m_bFailed) << "less than was written, without an error";
}
