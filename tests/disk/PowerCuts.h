#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <unordered_set>
#include <vector>

#include "tests/disk/MemoryDisk.h"
#include "tests/support/Files.h"

/// Replays the log of the disk and checks what the disk may hold if the power fails at any point of
/// the log. Everything that was synced is on the disk. Each page of a file, each size of a file and
/// each name that was changed later is on the disk as it was at some moment since its last sync,
/// independently of the others. After a failed sync of a file the system no longer writes the pages
/// back: a later sync covers only pages that are written again.
class PowerCuts {
 public:
    /// Returns what is wrong with a file, or an empty text. pBytes is null if the file does not
    /// exist.
    using Check = std::function<std::string(const CCmString* pBytes)>;

    /// From the current end of the log on, aCheck must succeed for the file strPath on every disk.
    /// Replaces an earlier promise for that file.
    void Promise(const CCmString& strPath, Check aCheck);

    /// Checks every possible disk at each point of the log, or nMost of them, which aRandom
    /// chooses. Returns the first error, or an empty text.
    std::string Find(SeededRandom& aRandom, std::size_t nMost);

    std::size_t CountDisks() const { return m_setDisks.size(); }

 private:
    /// A page, a size or a name, with all values that the disk may hold for it.
    struct DiskValue {
        std::vector<int> vecPossible{0};
        bool bDirty = false;
        std::size_t nChosen = 0;

        void Set(int nValue);
        void Sync(bool bSucceeded);
        int Chosen() const { return vecPossible[nChosen]; }
    };
    struct File {
        CCmString strBytes;  // as programs read them
        DiskValue aSize;
        std::vector<DiskValue> vecPages;  // their values are indexes of m_vecPages
    };
    struct Promised {
        std::size_t nFrom;
        CCmString strPath;
        Check aCheck;
    };
    static constexpr std::size_t c_nPage = 4096;

    void Apply(const MemoryDisk::Change& aChange);
    void KeepPages(File& aFile, std::size_t nFrom, std::size_t nTo);
    std::vector<DiskValue*> UncertainValues();
    std::string CheckDisk();
    std::string CheckFile(const Promised& aPromised, const File* pFile, std::uint64_t qwHash);
    const File* FileAt(const CCmString& strPath);
    std::uint64_t HashOf(const File& aFile);

    std::vector<Promised> m_vecPromised;
    std::map<CCmString, const Promised*> m_mapPromised;  // the promises at this point
    std::map<CCmString, DiskValue> m_mapNames;  // values: File::nNumber, c_nNothing, c_nDirectory
    std::map<int, File> m_mapFiles;
    std::vector<CCmString> m_vecPages{{}};
    std::unordered_set<std::uint64_t> m_setDisks;
    std::unordered_set<std::uint64_t> m_setChecked;  // hashes of a promise and a file
};
