#include "tests/soak/SoakStream.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr CmUint32 c_dwWord = 4, c_dwMostWords = 1 << 20;

}  // namespace

void SoakStream::CheckCode(CmInt32 lResult, const char* lpWhat) const {
    SoakRequire(lResult == 0 || (lResult == 4003 && MayLose()),
                lpWhat + (" returned " + std::to_string(lResult)));
}

void SoakStream::Step(SeededRandom& aRandom) {
    ++m_totals.qwOperations;
    const unsigned nWhat = aRandom.Below(100);
    if (!m_pHandler) {
        Open(aRandom);
    } else if (nWhat == 0 || m_dwWords > c_dwMostWords - 100'000) {
        Finish(aRandom, false);
    } else if (nWhat < 3) {
        Flush();
    } else if (nWhat < 5) {
        const CmInt32 lResult = m_pHandler->SyncFile(m_dwHandle);
        SoakRequire(m_bOpenFailed || lResult != 4006, "a sync failed");
        if (!m_bOpenFailed) CheckCode(lResult, "SyncFile");
    } else if (nWhat < 6) {
        m_pHandler->SetPendingLimit(aRandom.OneIn(2) ? c_qwNoLimit : 80'000);
    } else if (nWhat < 9) {
        Play(aRandom);
    } else {
        Append(aRandom);
    }
}

void SoakStream::Open(SeededRandom& aRandom) {
    m_dwOpen = ++m_totals.dwOpens;
    m_bAsync = aRandom.OneIn(2);
    m_nFullPeriods = m_totals.nFullPeriods - m_totals.bFull;
    m_dwWords = m_nReports = 0;
    m_bOpenFailed = m_bHoles = false;
    m_pHandler.reset(CCacheFileManager::Instance().CreateWriteFileHandler(m_dwOpen, m_bAsync));
    SoakRequire(m_pHandler && m_pHandler->Initialize(this) == 0, "a handler");
    const CmInt32 lResult = m_pHandler->OpenWritingFile("a", m_dwHandle);
    CheckCode(lResult, "OpenWritingFile");
    if (lResult != 0) m_pHandler.reset();
}

CCmString SoakStream::Words(CmUint32 dwFirst, CmUint32 dwWords) const {
    CCmString strBytes(std::size_t{c_dwWord} * dwWords, '\0');
    for (CmUint32 i = 0; i < dwWords; ++i) {
        const CmUint32 dwWord = Tag() << 20 | (dwFirst + i);
        std::memcpy(&strBytes[std::size_t{c_dwWord} * i], &dwWord, c_dwWord);
    }
    return strBytes;
}

void SoakStream::Append(SeededRandom& aRandom) {
    const CmUint32 dwWords = 1 + aRandom.Below(aRandom.OneIn(8) ? 40'000 : 1'000);
    const CCmString strBytes = Words(m_dwWords, dwWords);
    const CmInt32 lResult =
        m_pHandler->WriteData(m_dwHandle, BytesOf(strBytes), c_dwWord * dwWords, c_dwEnd);
    const bool bTooMuch = lResult == CACHE_ERR_TRY_AGAIN || lResult == CACHE_ERR_OUT_OF_MEMORY;
    if (!bTooMuch && !(m_bAsync && MayLose() && lResult == 4006)) CheckCode(lResult, "WriteData");
    if (lResult != 0) return;
    m_dwWords += dwWords;
    m_totals.qwAccepted += strBytes.size();
}

void SoakStream::Flush() {
    if (m_pHandler) m_pHandler->FlushData(m_dwHandle);
}

/// Reads parts of the file while it is recorded. Sometimes the player is destroyed before its reads
/// have run.
void SoakStream::Play(SeededRandom& aRandom) {
    const CHandlerPtr<CPlayFileHandler> pPlayer(
        CCacheFileManager::Instance().CreatePlayFileHandler(m_dwOpen, 0, m_bAsync));
    SoakRequire(pPlayer && pPlayer->Initialize(this) == 0, "a player");
    Flush();
    if (m_bAsync) SoakHost::Settle();  // the open of the file may have failed
    if (m_bOpenFailed) return;
    const tagDataInfo aInfo{1, 1001, m_dwOpen, 2};
    SoakRequire(pPlayer->OpenRecordFile("a", {1, 2, 1001, 0}, 0) == 0, "the file opens");
    for (unsigned i = aRandom.Below(4); i > 0; --i) {
        const CmUint32 dwOffset = c_dwWord * aRandom.Below(m_dwWords + 1);
        CmUint32 dwLength = c_dwWord * (1 + aRandom.Below(20'000));
        std::unique_ptr<unsigned char[]> pBuffer(new unsigned char[dwLength]);
        if (aRandom.OneIn(2)) {
            SoakRequire(pPlayer->ReadData(aInfo, pBuffer.get(), dwOffset, dwLength) == 0, "a read");
            static_cast<void>(pBuffer.release());
        } else {
            SoakRequire(pPlayer->SyncReadData(aInfo, pBuffer.get(), dwOffset, dwLength) == 0,
                        "a synchronous read");
            OnDataReady(pBuffer.release(), dwLength, aInfo);
        }
    }
    if (aRandom.OneIn(2)) SoakHost::Settle();
}

void SoakStream::OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                             const tagDataInfo& aDataInfo) {
    const std::unique_ptr<unsigned char[]> pBuffer(lpData);
    SoakRequire(aDataInfo.dwDataLen == m_dwOpen, "the read of this file");
    GapsIn({reinterpret_cast<char*>(lpData), dwLength}, false);
}

void SoakStream::OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType aOpType,
                                CmInt32 aResult) {
    if (aResult == 0) return;
    ++m_nReports;
    if (aOpType == CCacheFileManager::Op_Open) m_bOpenFailed = true;
    SoakRequire(aOpType != CCacheFileManager::Op_Read, "no read fails");
    if (!m_bOpenFailed) CheckCode(aResult, "a report");
}

/// Where words are missing, as the library reports it. bWhole: the bytes begin with the file, which
/// ends with them. Checks that no other bytes are there.
std::vector<SoakStream::Gap> SoakStream::GapsIn(const CCmString& strBytes, bool bWhole) const {
    SoakRequire(strBytes.size() % c_dwWord == 0, "whole words");
    std::vector<Gap> vecGaps;
    CmUint32 dwNext = 0;
    const auto skip = [&](std::size_t nAt, CmUint32 dwTo) {
        if (dwTo > dwNext && (bWhole || nAt > 0))
            vecGaps.push_back({nAt, std::uint64_t{c_dwWord} * (dwTo - dwNext)});
        dwNext = dwTo + 1;
    };
    for (std::size_t nAt = 0; nAt < strBytes.size(); nAt += c_dwWord) {
        CmUint32 dwWord = 0;
        std::memcpy(&dwWord, &strBytes[nAt], c_dwWord);
        const CmUint32 dwNumber = dwWord & (c_dwMostWords - 1);
        SoakRequire(
            dwWord >> 20 == Tag() && dwNumber >= dwNext && dwNumber < m_dwWords,
            "file " + std::to_string(m_dwOpen) + " has a wrong word at " + std::to_string(nAt));
        skip(nAt, dwNumber);
    }
    if (bWhole) skip(strBytes.size(), m_dwWords);
    return vecGaps;
}

/// Takes what the library says about the losses when nothing is gathered or pending.
void SoakStream::CheckLosses() {
    tagFileLosses aLosses;
    SoakRequire(m_pHandler->GetFileLosses(m_dwHandle, aLosses) == 0, "the losses of a file");
    SoakRequire(aLosses.qwPending == 0, "nothing is pending");
    m_bHoles = aLosses.bAllHoles != 0;
    m_vecHoles = aLosses.vecHoles;
}

void SoakStream::Finish(SeededRandom& aRandom, bool bStopped) {
    if (!m_pHandler) return;
    const unsigned nWay = bStopped && m_bAsync ? 3 : aRandom.Below(3);
    if (nWay == 0) {
        Flush();
        if (m_bAsync) SoakHost::Settle();
        CheckLosses();
    }
    if (nWay == 1 || (nWay == 0 && !m_bOpenFailed)) {
        CheckCode(m_pHandler->CloseFile(m_dwHandle), "CloseFile");
    } else if (nWay == 3) {
        CheckLosses();
        SoakRequire(m_pHandler->CloseFile(m_dwHandle) == 4010 || m_bOpenFailed, "a late close");
    }
    if (nWay != 2 && m_bAsync && !bStopped) SoakHost::Settle();
    m_pHandler.reset();
    if (m_bAsync && !bStopped) SoakHost::Settle();
    CheckFile(nWay != 2);
}

void SoakStream::CheckFile(bool bReported) {
    const std::string strDirectory = "kvr2/" + std::to_string(m_dwOpen);
    const bool bThere = std::filesystem::exists(strDirectory + "/a");
    SoakRequire(bThere || MayLose(), "the file is there");
    const std::vector<Gap> vecGaps =
        GapsIn(bThere ? ReadBytes(strDirectory + "/a") : CCmString(), true);
    std::uint64_t qwMissing = 0;
    for (const Gap& aGap : vecGaps) qwMissing += aGap.qwLength;
    m_totals.qwMissing += qwMissing;
    std::filesystem::remove_all(strDirectory);
    const std::string strFile = "file " + std::to_string(m_dwOpen) + ": ";
    SoakRequire(qwMissing == 0 || MayLose(), strFile + "bytes are missing without a full disk");
    if (m_bAsync && bReported)
        SoakRequire((qwMissing > 0 || m_bOpenFailed) == (m_nReports > 0),
                    strFile + std::to_string(qwMissing) + " bytes are missing, " +
                        std::to_string(m_nReports) + " reports");
    const auto isSame = [](const Gap& aGap, const tagFileHole& aHole) {
        return aGap.qwOffset == aHole.qwOffset && aGap.qwLength == aHole.qwLength &&
               !aHole.bInPlace;
    };
    SoakRequire(!m_bHoles || std::equal(vecGaps.begin(), vecGaps.end(), m_vecHoles.begin(),
                                        m_vecHoles.end(), isSame),
                strFile + "the reported holes are not those of the file");
}
