#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/Bench.h"

constexpr std::size_t c_nBlock = 32768;  // every contestant gathers blocks of this size

constexpr std::uint64_t c_qwNoLimit = ~std::uint64_t{0};
constexpr std::uint64_t c_qwLimit = 4U << 20;  // pending bytes

/// One implementation of appending to several files.
class IAppender {
 public:
    virtual ~IAppender() = default;
    virtual void Append(std::size_t nFile, const char* lpData, std::size_t nLength) = 0;
    /// Returns when every byte has reached the operating system and the files are closed.
    virtual void Finish() = 0;
};

struct tagAppends {
    std::size_t nFiles;
    std::size_t nPiece;
    std::size_t nCount;
    std::size_t nFirst = 0;  // this many appends in a row go to the first file, then one to another
};

using MakeAppender =
    std::function<std::unique_ptr<IAppender>(const std::vector<std::string>& vecPaths)>;

struct tagAppenderKind {
    const char* lpName;
    MakeAppender aMake;
};

/// Appends at a steady rate, in bytes a nanosecond, like a live source, and measures what each
/// append costs the caller.
Metrics RunPaced(const tagBench& aBench, const tagAppends& aAppends, const MakeAppender& aMake,
                 double dRate);

/// With an interval, in seconds, an append also syncs its file, if that long has passed since the
/// last time.
std::unique_ptr<IAppender> MakeStdio(const std::vector<std::string>& vecPaths,
                                     double dSyncInterval = 0);
std::unique_ptr<IAppender> MakeGather(const std::vector<std::string>& vecPaths);
std::unique_ptr<IAppender> MakeDirect(const std::vector<std::string>& vecPaths);
std::unique_ptr<IAppender> MakeMemcpy(const std::vector<std::string>& vecPaths);
enum HandOver { HandOver_Sleeping, HandOver_Napping, HandOver_WholePieces };
std::unique_ptr<IAppender> MakeHandOver(const std::vector<std::string>& vecPaths, HandOver aKind);
/// How the library is used. Times are in milliseconds, and 0 switches a feature off.
struct tagLibraryUse {
    bool bAsync = true;
    std::uint64_t qwLimit = c_qwNoLimit;  // of pending bytes
    bool bRoomWakeUp = true;              // if false, a refused host tries again every millisecond
    std::uint32_t dwSyncInterval = 0;
    std::uint32_t dwGatherAge = 0;
};
MakeAppender Library(const tagLibraryUse& aUse);
#ifdef BENCH_SQLITE
/// A row for each append, in WAL mode with synchronous=NORMAL.
std::unique_ptr<IAppender> MakeSqliteAppender(const std::vector<std::string>& vecPaths);
#endif
#ifdef BENCH_LEVELDB
std::unique_ptr<IAppender> MakeLevelDb(const std::vector<std::string>& vecPaths);
#endif
#ifdef BENCH_LIBUV
std::unique_ptr<IAppender> MakeUv(const std::vector<std::string>& vecPaths);
#endif
