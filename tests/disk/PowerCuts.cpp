#include "tests/disk/PowerCuts.h"

#include <algorithm>
#include <functional>

namespace {

using Change = MemoryDisk::Change;

std::uint64_t Mix(std::uint64_t qwHash, std::uint64_t qwValue) {
    qwHash = (qwHash ^ qwValue) * 0x9E3779B97F4A7C15;
    return qwHash ^ qwHash >> 29;
}

}  // namespace

void PowerCuts::Cell::Set(int nValue) {
    if (nValue == vecMay.back()) return;
    vecMay.push_back(nValue);
    bDirty = true;
}

void PowerCuts::Cell::Sync(bool bWell) {
    if (bDirty && bWell) vecMay = {vecMay.back()};
    bDirty = false;
}

void PowerCuts::Promise(const CCmString& strPath, Check aCheck) {
    MemoryDisk& aDisk = MemoryDisk::Instance();
    const std::lock_guard<std::mutex> aGuard(aDisk.m_mutex);
    m_vecPromised.push_back({aDisk.m_vecLog.size(), MemoryDisk::Key(strPath), std::move(aCheck)});
}

/// Adds the current contents of the pages with the bytes from nFrom to nTo to their cells.
void PowerCuts::KeepPages(File& aFile, std::size_t nFrom, std::size_t nTo) {
    if (aFile.vecPages.size() * c_nPage < nTo) aFile.vecPages.resize((nTo + c_nPage - 1) / c_nPage);
    for (std::size_t nPage = nFrom / c_nPage; nPage * c_nPage < nTo; ++nPage) {
        const std::size_t nAt = nPage * c_nPage;
        const bool bThere = nAt < aFile.strBytes.size();
        m_vecPages.push_back(bThere ? aFile.strBytes.substr(nAt, c_nPage) : CCmString());
        aFile.vecPages[nPage].Set(bThere ? static_cast<int>(m_vecPages.size() - 1) : 0);
    }
}

void PowerCuts::Apply(const Change& aChange) {
    File& aFile = m_mapFiles[aChange.nFile];
    const std::size_t nSize = aFile.strBytes.size();
    switch (aChange.aKind) {
        case Change::Written: {
            const std::size_t nEnd = aChange.qwOffset + aChange.strBytes.size();
            aFile.strBytes.resize(std::max(nSize, nEnd));
            aFile.strBytes.replace(aChange.qwOffset, aChange.strBytes.size(), aChange.strBytes);
            KeepPages(aFile, aChange.qwOffset, nEnd);
            break;
        }
        case Change::Cut:
            aFile.strBytes.resize(aChange.qwOffset);
            KeepPages(aFile, aChange.qwOffset, nSize);
            break;
        case Change::Synced:
            aFile.aSize.Sync(aChange.bWell);
            for (Cell& aPage : aFile.vecPages) aPage.Sync(aChange.bWell);
            break;
        case Change::Named:
            m_mapNames[aChange.strPath].Set(aChange.nFile);
            break;
        case Change::NamesSynced:  // after a failure the names are still unsynced
            for (auto& [strPath, aName] : m_mapNames) {
                const std::size_t nAt = strPath.rfind('/');
                if (strPath.substr(0, nAt == CCmString::npos ? 0 : nAt) == aChange.strPath)
                    if (aChange.bWell) aName.Sync(true);
            }
            break;
    }
    aFile.aSize.Set(static_cast<int>(aFile.strBytes.size()));
}

/// The cells for which the disk may hold more than one value.
std::vector<PowerCuts::Cell*> PowerCuts::OpenCells() {
    std::vector<Cell*> vecOpen;
    const auto aTake = [&](Cell& aCell) {
        aCell.nPick = 0;
        if (aCell.vecMay.size() > 1) vecOpen.push_back(&aCell);
    };
    for (auto& [strPath, aName] : m_mapNames) aTake(aName);
    for (auto& [nFile, aFile] : m_mapFiles) {
        aTake(aFile.aSize);
        for (Cell& aPage : aFile.vecPages) aTake(aPage);
    }
    return vecOpen;
}

/// The file of that name on the chosen disk; null if there is none.
const PowerCuts::File* PowerCuts::Look(const CCmString& strPath) {
    for (std::size_t nAt = 0; (nAt = strPath.find('/', nAt)) != CCmString::npos; ++nAt)
        if (m_mapNames[strPath.substr(0, nAt)].Picked() != MemoryDisk::c_nDirectory) return nullptr;
    const int nFile = m_mapNames[strPath].Picked();
    return nFile > 0 ? &m_mapFiles[nFile] : nullptr;
}

std::uint64_t PowerCuts::HashOf(int nPage, std::size_t nLength) {
    std::uint64_t& qwHash = m_mapHashes[static_cast<std::uint64_t>(nPage) << 16 | nLength];
    if (qwHash != 0) return qwHash;
    CCmString strBytes = m_vecPages[static_cast<std::size_t>(nPage)];
    strBytes.resize(nLength);
    return qwHash = std::hash<CCmString>()(strBytes) | 1;
}

std::uint64_t PowerCuts::HashOf(const File& aFile) {
    auto nLeft = static_cast<std::size_t>(aFile.aSize.Picked());
    std::uint64_t qwHash = nLeft + 1;
    for (std::size_t i = 0; nLeft > 0; ++i) {
        const std::size_t nPart = std::min(nLeft, c_nPage);
        qwHash = Mix(qwHash, HashOf(aFile.vecPages[i].Picked(), nPart));
        nLeft -= nPart;
    }
    return qwHash;
}

std::string PowerCuts::CheckFile(const Promised& aPromised, const File* pFile,
                                 std::uint64_t qwHash) {
    const auto nPromise = static_cast<std::uint64_t>(&aPromised - m_vecPromised.data());
    if (!m_setChecked.insert(Mix(qwHash, nPromise + 1)).second) return {};
    if (!pFile) return aPromised.aCheck(nullptr);
    CCmString strBytes;
    const auto nSize = static_cast<std::size_t>(pFile->aSize.Picked());
    for (std::size_t i = 0; strBytes.size() < nSize; ++i) {
        strBytes += m_vecPages[static_cast<std::size_t>(pFile->vecPages[i].Picked())];
        strBytes.resize(std::min(nSize, (i + 1) * c_nPage));
    }
    return aPromised.aCheck(&strBytes);
}

/// Checks the disk that the cells have chosen.
std::string PowerCuts::CheckDisk() {
    std::uint64_t qwDisk = 1;
    for (const auto& [strPath, aName] : m_mapNames) {
        const File* const pFile = Look(strPath);
        const std::uint64_t qwFile = pFile ? HashOf(*pFile) : 0;
        const bool bDirectory = aName.Picked() == MemoryDisk::c_nDirectory;
        if (pFile || bDirectory) qwDisk = Mix(Mix(qwDisk, std::hash<CCmString>()(strPath)), qwFile);
        const auto it = m_mapPromised.find(strPath);
        if (it == m_mapPromised.end()) continue;
        const std::string strWrong = CheckFile(*it->second, pFile, qwFile);
        if (!strWrong.empty()) return strPath + ": " + strWrong;
    }
    m_setDisks.insert(qwDisk);
    return {};
}

std::string PowerCuts::Find(SeededRandom& aRandom, std::size_t nMost) {
    std::string strWrong;
    auto itPromised = m_vecPromised.begin();
    const std::vector<Change>& vecLog = MemoryDisk::Instance().m_vecLog;
    for (std::size_t nPoint = 0; nPoint <= vecLog.size(); ++nPoint) {
        if (nPoint > 0) Apply(vecLog[nPoint - 1]);
        for (; itPromised != m_vecPromised.end() && itPromised->nFrom <= nPoint; ++itPromised) {
            m_mapPromised[itPromised->strPath] = &*itPromised;
            m_mapNames[itPromised->strPath];
        }
        const std::vector<Cell*> vecOpen = OpenCells();
        std::size_t nAll = 1;
        for (const Cell* const pCell : vecOpen)
            nAll = std::min(nMost + 1, nAll * pCell->vecMay.size());
        // All disks, if there are at most nMost. Otherwise first the disks on which only one cell
        // has its newest value, and those on which only one has its oldest: they show most faults.
        const std::size_t nOnes = nAll <= nMost ? 0 : std::min(nMost, 2 * vecOpen.size());
        for (std::size_t nDisk = 0; nDisk < std::min(nAll, nMost); ++nDisk) {
            std::size_t nLeft = nDisk;
            for (std::size_t i = 0; i < vecOpen.size(); ++i) {
                const std::size_t nCount = vecOpen[i]->vecMay.size();
                if (nAll <= nMost) {
                    vecOpen[i]->nPick = nLeft % nCount;
                    nLeft /= nCount;
                } else if (nDisk < nOnes) {
                    vecOpen[i]->nPick = (i == nDisk / 2) == (nDisk % 2 == 0) ? nCount - 1 : 0;
                } else {
                    vecOpen[i]->nPick = aRandom.Below(static_cast<unsigned>(nCount));
                }
            }
            strWrong = CheckDisk();
            if (!strWrong.empty()) return strWrong + ", at change " + std::to_string(nPoint);
        }
    }
    return strWrong;
}
