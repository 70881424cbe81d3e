#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "tests/disk/MemoryDisk.h"
#include "tests/support/Files.h"

/// Goes through the log of the disk and looks at what the disk may hold if the power fails at any
/// point of it. What was synced is there. Of the rest, each page of a file, each file's size and
/// each name is on the disk as it was at any moment since it was last synced, whatever became of
/// the others. After a sync that failed the system believes that everything is on the disk: only
/// what is written again is synced by a later one.
class PowerCuts {
 public:
    /// Says what is wrong with a file, or nothing. Null: there is no such file.
    using Check = std::function<std::string(const CCmString* pBytes)>;

    /// From the current end of the log on, this must hold for the file strPath on every disk. It
    /// replaces an earlier promise for that file.
    void Promise(const CCmString& strPath, Check aCheck);

    /// Checks every disk, or as many at each point as nMost, chosen by aRandom. Returns the first
    /// thing that is wrong, or nothing.
    std::string Find(SeededRandom& aRandom, std::size_t nMost);

    std::size_t CountDisks() const { return m_setDisks.size(); }

 private:
    /// A thing that a sync brings to the disk, and all that the disk may hold for it.
    struct Cell {
        std::vector<int> vecMay{0};
        bool bDirty = false;
        std::size_t nPick = 0;

        void Set(int nValue);
        void Sync(bool bWell);
        int Picked() const { return vecMay[nPick]; }
    };
    struct File {
        CCmString strBytes;  // as programs see them
        Cell aSize;
        std::vector<Cell> vecPages;  // numbers of m_vecPages
    };
    struct Promised {
        std::size_t nFrom;
        CCmString strPath;
        Check aCheck;
    };
    static constexpr std::size_t c_nPage = 4096;

    void Apply(const MemoryDisk::Change& aChange);
    void KeepPages(File& aFile, std::size_t nFrom, std::size_t nTo);
    std::vector<Cell*> OpenCells();
    std::string CheckDisk();
    std::string CheckFile(const Promised& aPromised, const File* pFile, std::uint64_t qwHash);
    const File* Look(const CCmString& strPath);
    std::uint64_t HashOf(const File& aFile);
    std::uint64_t HashOf(int nPage, std::size_t nLength);

    std::vector<Promised> m_vecPromised;
    std::map<CCmString, const Promised*> m_mapPromised;  // those that hold at this point
    std::map<CCmString, Cell> m_mapNames;  // numbers of files, c_nNothing, c_nDirectory
    std::map<int, File> m_mapFiles;
    std::vector<CCmString> m_vecPages{{}};
    std::unordered_map<std::uint64_t, std::uint64_t> m_mapHashes;  // of a page's first bytes
    std::unordered_set<std::uint64_t> m_setDisks;
    std::unordered_set<std::uint64_t> m_setChecked;  // promises and files
};
