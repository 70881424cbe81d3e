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

void PowerCuts::DiskValue::Set(int nValue) {
    if (nValue == vecPossible.back()) return;
    vecPossible.push_back(nValue);
    bDirty = true;
}

void PowerCuts::DiskValue::Sync(bool bSucceeded) {
    if (bDirty && bSucceeded) vecPossible = {vecPossible.back()};
    bDirty = false;
}

void PowerCuts::Promise(const CCmString& strPath, Check aCheck) {
    MemoryDisk& aDisk = MemoryDisk::Instance();
    const std::lock_guard<std::mutex> aGuard(aDisk.m_mutex);
    m_vecPromised.push_back({aDisk.m_vecLog.size(), MemoryDisk::Key(strPath), std::move(aCheck)});
}

/// Adds the current contents of the pages with the bytes from nFrom to nTo to their values.
void PowerCuts::KeepPages(File& aFile, std::size_t nFrom, std::size_t nTo) {
    if (aFile.vecPages.size() * c_nPage < nTo) aFile.vecPages.resize((nTo + c_nPage - 1) / c_nPage);
    for (std::size_t nPage = nFrom / c_nPage; nPage * c_nPage < nTo; ++nPage) {
        const std::size_t nAt = nPage * c_nPage;
        const bool bExists = nAt < aFile.strBytes.size();
        m_vecPages.push_back(bExists ? aFile.strBytes.substr(nAt, c_nPage) : CCmString());
        aFile.vecPages[nPage].Set(bExists ? static_cast<int>(m_vecPages.size() - 1) : 0);
    }
}

void PowerCuts::Apply(const Change& aChange) {
    File& aFile = m_mapFiles[aChange.nFile];
    const std::size_t nSize = aFile.strBytes.size();
    const auto nOffset = static_cast<std::size_t>(aChange.qwOffset);
    switch (aChange.aKind) {
        case Change::Written: {
            const std::size_t nEnd = nOffset + aChange.strBytes.size();
            aFile.strBytes.resize(std::max(nSize, nEnd));
            aFile.strBytes.replace(nOffset, aChange.strBytes.size(), aChange.strBytes);
            KeepPages(aFile, nOffset, nEnd);
            break;
        }
        case Change::Cut:
            aFile.strBytes.resize(nOffset);
            KeepPages(aFile, nOffset, nSize);
            break;
        case Change::Synced:
            aFile.aSize.Sync(aChange.bSucceeded);
            for (DiskValue& aPage : aFile.vecPages) aPage.Sync(aChange.bSucceeded);
            break;
        case Change::Named:
            m_mapNames[aChange.strPath].Set(aChange.nFile);
            break;
        case Change::NamesSynced:  // after a failure the names are still unsynced
            for (auto& [strPath, aName] : m_mapNames) {
                const std::size_t nAt = strPath.rfind('/');
                if (strPath.substr(0, nAt == CCmString::npos ? 0 : nAt) == aChange.strPath)
                    if (aChange.bSucceeded) aName.Sync(true);
            }
            break;
    }
    aFile.aSize.Set(static_cast<int>(aFile.strBytes.size()));
}

/// The pages, sizes and names of which the disk may hold more than one version.
std::vector<PowerCuts::DiskValue*> PowerCuts::UncertainValues() {
    std::vector<DiskValue*> vecUncertain;
    const auto aTake = [&](DiskValue& aValue) {
        aValue.nChosen = 0;
        if (aValue.vecPossible.size() > 1) vecUncertain.push_back(&aValue);
    };
    for (auto& [strPath, aName] : m_mapNames) aTake(aName);
    for (auto& [nFile, aFile] : m_mapFiles) {
        aTake(aFile.aSize);
        for (DiskValue& aPage : aFile.vecPages) aTake(aPage);
    }
    return vecUncertain;
}

/// The file of that name on the chosen disk; null if there is none.
const PowerCuts::File* PowerCuts::FileAt(const CCmString& strPath) {
    for (std::size_t nAt = 0; (nAt = strPath.find('/', nAt)) != CCmString::npos; ++nAt)
        if (m_mapNames[strPath.substr(0, nAt)].Chosen() != MemoryDisk::c_nDirectory) return nullptr;
    const int nFile = m_mapNames[strPath].Chosen();
    return nFile > 0 ? &m_mapFiles[nFile] : nullptr;
}

/// Two files that differ in a page or in the size have different hashes, except by chance.
std::uint64_t PowerCuts::HashOf(const File& aFile) {
    const auto nSize = static_cast<std::size_t>(aFile.aSize.Chosen());
    std::uint64_t qwHash = nSize + 1;
    for (std::size_t i = 0; i * c_nPage < nSize; ++i)
        qwHash = Mix(qwHash, static_cast<std::uint64_t>(aFile.vecPages[i].Chosen()));
    return qwHash;
}

std::string PowerCuts::CheckFile(const Promised& aPromised, const File* pFile,
                                 std::uint64_t qwHash) {
    const auto nPromise = static_cast<std::uint64_t>(&aPromised - m_vecPromised.data());
    if (!m_setChecked.insert(Mix(qwHash, nPromise + 1)).second) return {};
    if (!pFile) return aPromised.aCheck(nullptr);
    CCmString strBytes;
    const auto nSize = static_cast<std::size_t>(pFile->aSize.Chosen());
    for (std::size_t i = 0; strBytes.size() < nSize; ++i) {
        strBytes += m_vecPages[static_cast<std::size_t>(pFile->vecPages[i].Chosen())];
        strBytes.resize(std::min(nSize, (i + 1) * c_nPage));
    }
    return aPromised.aCheck(&strBytes);
}

/// Checks the disk with the chosen versions.
std::string PowerCuts::CheckDisk() {
    std::uint64_t qwDisk = 1;
    for (const auto& [strPath, aName] : m_mapNames) {
        const File* const pFile = FileAt(strPath);
        const std::uint64_t qwFile = pFile ? HashOf(*pFile) : 0;
        const bool bDirectory = aName.Chosen() == MemoryDisk::c_nDirectory;
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
        const std::vector<DiskValue*> vecUncertain = UncertainValues();
        std::size_t nAll = 1;
        for (const DiskValue* const pValue : vecUncertain)
            nAll = std::min(nMost + 1, nAll * pValue->vecPossible.size());
        // All disks, if there are at most nMost. Otherwise first the disks on which only one item
        // has its newest value, and those on which only one has its oldest: they show most faults.
        const std::size_t nOnes = nAll <= nMost ? 0 : std::min(nMost, 2 * vecUncertain.size());
        for (std::size_t nDisk = 0; nDisk < std::min(nAll, nMost); ++nDisk) {
            std::size_t nLeft = nDisk;
            for (std::size_t i = 0; i < vecUncertain.size(); ++i) {
                const std::size_t nCount = vecUncertain[i]->vecPossible.size();
                if (nAll <= nMost) {
                    vecUncertain[i]->nChosen = nLeft % nCount;
                    nLeft /= nCount;
                } else if (nDisk < nOnes) {
                    vecUncertain[i]->nChosen =
                        (i == nDisk / 2) == (nDisk % 2 == 0) ? nCount - 1 : 0;
                } else {
                    vecUncertain[i]->nChosen = aRandom.Below(static_cast<unsigned>(nCount));
                }
            }
            strWrong = CheckDisk();
            if (!strWrong.empty()) return strWrong + ", at change " + std::to_string(nPoint);
        }
    }
    return strWrong;
}
