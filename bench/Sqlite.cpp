#include <sqlite3.h>

#include <cstdio>

#include "bench/Appender.h"
#include "bench/Archives.h"

namespace {

void Run(sqlite3* pDatabase, const char* lpStatement) {
    Require(sqlite3_exec(pDatabase, lpStatement, nullptr, nullptr, nullptr) == SQLITE_OK,
            lpStatement);
}

sqlite3* Open(const std::string& strPath) {
    sqlite3* pDatabase = nullptr;
    Require(sqlite3_open(strPath.c_str(), &pDatabase) == SQLITE_OK, "sqlite3_open");
    return pDatabase;
}

/// Each file is a table of pieces in one database, beside the first file.
class CSqliteAppender final : public IAppender {
 public:
    explicit CSqliteAppender(const std::vector<std::string>& vecPaths)
        : m_strPath(vecPaths[0] + ".db"), m_pDatabase(Open(m_strPath)) {
        Run(m_pDatabase, "PRAGMA journal_mode=WAL");
        Run(m_pDatabase, "PRAGMA synchronous=NORMAL");
        Run(m_pDatabase, "CREATE TABLE pieces(file INT, bytes BLOB)");
        sqlite3_prepare_v2(m_pDatabase, "INSERT INTO pieces VALUES(?1,?2)", -1, &m_pInsert,
                           nullptr);
    }
    void Append(std::size_t nFile, const char* lpData, std::size_t nLength) override {
        sqlite3_bind_int(m_pInsert, 1, static_cast<int>(nFile));
        sqlite3_bind_blob(m_pInsert, 2, lpData, static_cast<int>(nLength), SQLITE_STATIC);
        Require(sqlite3_step(m_pInsert) == SQLITE_DONE, "sqlite3_step");
        sqlite3_reset(m_pInsert);
    }
    void Finish() override {
        sqlite3_finalize(m_pInsert);
        sqlite3_close(m_pDatabase);
        std::remove(m_strPath.c_str());
    }

 private:
    const std::string m_strPath;
    sqlite3* const m_pDatabase;
    sqlite3_stmt* m_pInsert = nullptr;
};

struct tagRow {
    int nType, nID, nKind, nExtra, nOffset, nSize;
};

}  // namespace

void MakeSqlite(const std::string& strPath, std::size_t nEntries) {
    sqlite3* const pDatabase = Open(strPath);
    Run(pDatabase, "PRAGMA synchronous=OFF");
    Run(pDatabase,
        "CREATE TABLE streams(type INT, id INT, kind INT, extra INT, offset INT, size INT)");
    Run(pDatabase, "BEGIN");
    sqlite3_stmt* pInsert = nullptr;
    sqlite3_prepare_v2(pDatabase, "INSERT INTO streams VALUES(4,?1,4,0,?2,16)", -1, &pInsert,
                       nullptr);
    for (std::size_t i = 0; i < nEntries; ++i) {
        sqlite3_bind_int(pInsert, 1, static_cast<int>(i * 1000 + 4));
        sqlite3_bind_int(pInsert, 2, static_cast<int>(i * 16));
        Require(sqlite3_step(pInsert) == SQLITE_DONE, "sqlite3_step");
        sqlite3_reset(pInsert);
    }
    sqlite3_finalize(pInsert);
    Run(pDatabase, "COMMIT");
    sqlite3_close(pDatabase);
}

/// Reads the whole table and keeps it, as a player does.
std::size_t OpenSqlite(const std::string& strPath) {
    sqlite3* const pDatabase = Open(strPath);
    sqlite3_stmt* pSelect = nullptr;
    sqlite3_prepare_v2(pDatabase, "SELECT type, id, kind, extra, offset, size FROM streams", -1,
                       &pSelect, nullptr);
    std::vector<tagRow> vecRows;
    const auto column = [&](int n) { return sqlite3_column_int(pSelect, n); };
    while (sqlite3_step(pSelect) == SQLITE_ROW)
        vecRows.push_back({column(0), column(1), column(2), column(3), column(4), column(5)});
    sqlite3_finalize(pSelect);
    sqlite3_close(pDatabase);
    return vecRows.size();
}

std::unique_ptr<IAppender> MakeSqliteAppender(const std::vector<std::string>& vecPaths) {
    return std::make_unique<CSqliteAppender>(vecPaths);
}
