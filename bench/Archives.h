#pragma once

#include <cstddef>
#include <string>

/// Other files that hold many small streams: each is made with nEntries of them, and opened until
/// the place of any stream is known. Returns how many were found.
#ifdef BENCH_SQLITE
void MakeSqlite(const std::string& strPath, std::size_t nEntries);
std::size_t OpenSqlite(const std::string& strPath);
#endif
#ifdef BENCH_LIBZIP
void MakeZip(const std::string& strPath, std::size_t nEntries);
std::size_t OpenZip(const std::string& strPath);
#endif
