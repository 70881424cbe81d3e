#include <leveldb/env.h>

#include "bench/Appender.h"

namespace {

class CLevelDbAppender final : public IAppender {
 public:
    explicit CLevelDbAppender(const std::vector<std::string>& vecPaths) {
        for (const std::string& strPath : vecPaths) {
            leveldb::WritableFile* pFile = nullptr;
            Require(leveldb::Env::Default()->NewWritableFile(strPath, &pFile).ok(),
                    "NewWritableFile");
            m_vecFiles.emplace_back(pFile);
        }
    }
    void Append(std::size_t nFile, const char* lpData, std::size_t nLength) override {
        Require(m_vecFiles[nFile]->Append(leveldb::Slice(lpData, nLength)).ok(), "Append");
    }
    void Finish() override {
        for (auto& pFile : m_vecFiles) Require(pFile->Close().ok(), "Close");
    }

 private:
    std::vector<std::unique_ptr<leveldb::WritableFile>> m_vecFiles;
};

}  // namespace

std::unique_ptr<IAppender> MakeLevelDb(const std::vector<std::string>& vecPaths) {
    return std::make_unique<CLevelDbAppender>(vecPaths);
}
