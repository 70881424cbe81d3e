#include "writer/OpenFiles.h"

#include <algorithm>
#include <utility>

COpenFiles::Position COpenFiles::FirstFrom(CmUint32 dwHandle) const {
    return std::lower_bound(
        m_vecFiles.begin(), m_vecFiles.end(), dwHandle,
        [](const tagOpenFile& aFile, CmUint32 dwWanted) { return aFile.GetHandle() < dwWanted; });
}

bool COpenFiles::IsAt(Position it, CmUint32 dwHandle) const {
    return it != m_vecFiles.end() && it->GetHandle() == dwHandle;
}

CmUint32 COpenFiles::Add(const CRefPtr<IFileOperation>& pFile) {
    // After 2^32 opens the handles start again, and files from before may still be open.
    tagOpenFile aFile{0, pFile};
    do {
        aFile.qwNumber = m_lastNumber.fetch_add(1, std::memory_order_relaxed) + 1;
    } while (aFile.GetHandle() == 0 || Find(aFile.GetHandle()));
    const CmUint32 dwHandle = aFile.GetHandle();
    m_vecFiles.insert(FirstFrom(dwHandle), std::move(aFile));
    return dwHandle;
}

/// Handles are usually consecutive, so the distance from the first one is tried as the position
/// before the search.
IFileOperation* COpenFiles::Find(CmUint32 dwHandle) const {
    if (m_vecFiles.empty()) return nullptr;
    const CmUint32 dwGuess = dwHandle - m_vecFiles.front().GetHandle();
    if (dwGuess < m_vecFiles.size() && m_vecFiles[dwGuess].GetHandle() == dwHandle)
        return m_vecFiles[dwGuess].pFile.Get();
    const Position it = FirstFrom(dwHandle);
    return IsAt(it, dwHandle) ? it->pFile.Get() : nullptr;
}

bool COpenFiles::Remove(CmUint32 dwHandle) {
    const Position it = FirstFrom(dwHandle);
    if (!IsAt(it, dwHandle)) return false;
    m_vecFiles.erase(it);
    return true;
}

void COpenFiles::CloseAll() {
    // The order of the handles is not that of opening if they have started again from 1.
    std::sort(m_vecFiles.begin(), m_vecFiles.end(),
              [](const tagOpenFile& aLeft, const tagOpenFile& aRight) {
                  return aLeft.qwNumber < aRight.qwNumber;
              });
    for (const tagOpenFile& aFile : m_vecFiles) aFile.pFile->Close();
    m_vecFiles.clear();
}
