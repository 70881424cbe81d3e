#pragma once

#include <cstddef>
#include <string>

/// Other file formats that hold many small streams. Make... writes nEntries streams. Open... reads
/// the index, so that every stream can be found, and returns the number of streams.
#ifdef BENCH_SQLITE
void MakeSqlite(const std::string& strPath, std::size_t nEntries);
std::size_t OpenSqlite(const std::string& strPath);
#endif
#ifdef BENCH_LIBZIP
void MakeZip(const std::string& strPath, std::size_t nEntries);
std::size_t OpenZip(const std::string& strPath);
#endif
