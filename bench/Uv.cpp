#include "bench/Uv.h"

#include <fcntl.h>
#include <uv.h>

#include "bench/Appender.h"

namespace {

/// Gathers blocks and passes each to the thread pool with its file offset. Blocks are reused.
class CUvAppender final : public IAppender {
 public:
    explicit CUvAppender(const std::vector<std::string>& vecPaths) {
        Require(uv_loop_init(&m_loop) == 0, "uv_loop_init");
        for (const std::string& strPath : vecPaths) {
            uv_fs_t aRequest;
            const int nFile = uv_fs_open(&m_loop, &aRequest, strPath.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0666, nullptr);
            uv_fs_req_cleanup(&aRequest);
            Require(nFile >= 0, "uv_fs_open");
            m_vecFiles.push_back({nFile, 0, {}});
        }
    }
    void Append(std::size_t nFile, const char* lpData, std::size_t nLength) override {
        tagFile& aFile = m_vecFiles[nFile];
        if (!aFile.pBlock) aFile.pBlock = TakeFree();
        aFile.pBlock->strBytes.append(lpData, nLength);
        if (aFile.pBlock->strBytes.size() < c_nBlock) return;
        Post(aFile);
        uv_run(&m_loop, UV_RUN_NOWAIT);
    }
    void Finish() override {
        for (tagFile& aFile : m_vecFiles)
            if (aFile.pBlock) Post(aFile);
        uv_run(&m_loop, UV_RUN_DEFAULT);
        for (const tagFile& aFile : m_vecFiles) {
            uv_fs_t aRequest;
            uv_fs_close(&m_loop, &aRequest, aFile.nFile, nullptr);
            uv_fs_req_cleanup(&aRequest);
        }
        uv_loop_close(&m_loop);
    }

 private:
    struct tagBlock {
        uv_fs_t aRequest;
        CUvAppender* pOwner;
        std::string strBytes;
    };
    struct tagFile {
        int nFile;
        std::int64_t nEnd;
        std::unique_ptr<tagBlock> pBlock;
    };

    std::unique_ptr<tagBlock> TakeFree() {
        if (m_vecFree.empty()) {
            auto pBlock = std::make_unique<tagBlock>();
            pBlock->strBytes.reserve(c_nBlock + 4096);
            return pBlock;
        }
        auto pBlock = std::move(m_vecFree.back());
        m_vecFree.pop_back();
        return pBlock;
    }

    void Post(tagFile& aFile) {
        tagBlock* const pBlock = aFile.pBlock.release();
        pBlock->pOwner = this;
        pBlock->aRequest.data = pBlock;
        uv_buf_t aBuffer =
            uv_buf_init(pBlock->strBytes.data(), static_cast<unsigned>(pBlock->strBytes.size()));
        uv_fs_write(&m_loop, &pBlock->aRequest, aFile.nFile, &aBuffer, 1, aFile.nEnd, OnWritten);
        aFile.nEnd += static_cast<std::int64_t>(pBlock->strBytes.size());
    }

    static void OnWritten(uv_fs_t* pRequest) {
        std::unique_ptr<tagBlock> pBlock(static_cast<tagBlock*>(pRequest->data));
        Require(pRequest->result == static_cast<ssize_t>(pBlock->strBytes.size()), "uv_fs_write");
        uv_fs_req_cleanup(pRequest);
        pBlock->strBytes.clear();
        auto& vecFree = pBlock->pOwner->m_vecFree;
        vecFree.push_back(std::move(pBlock));
    }

    uv_loop_t m_loop;
    std::vector<tagFile> m_vecFiles;
    std::vector<std::unique_ptr<tagBlock>> m_vecFree;
};

struct tagReads {
    uv_loop_t aLoop;
    int nFile;
    std::size_t nLeft;
    std::size_t nLength;
    const std::function<std::uint64_t()>& aNext;
};

struct tagRead {
    uv_fs_t aRequest;
    tagReads* pReads;
    std::vector<char> vecBytes;
};

void PostRead(tagRead* pRead);

void OnRead(uv_fs_t* pRequest) {
    tagRead* const pRead = static_cast<tagRead*>(pRequest->data);
    Require(pRequest->result == static_cast<ssize_t>(pRead->pReads->nLength), "uv_fs_read");
    uv_fs_req_cleanup(pRequest);
    PostRead(pRead);
}

void PostRead(tagRead* pRead) {
    tagReads& aReads = *pRead->pReads;
    if (aReads.nLeft == 0) return;
    --aReads.nLeft;
    uv_buf_t aBuffer = uv_buf_init(pRead->vecBytes.data(), static_cast<unsigned>(aReads.nLength));
    uv_fs_read(&aReads.aLoop, &pRead->aRequest, aReads.nFile, &aBuffer, 1,
               static_cast<std::int64_t>(aReads.aNext()), OnRead);
}

}  // namespace

std::unique_ptr<IAppender> MakeUv(const std::vector<std::string>& vecPaths) {
    return std::make_unique<CUvAppender>(vecPaths);
}

void ReadWithUv(const std::string& strPath, std::size_t nCount, std::size_t nLength,
                std::size_t nInFlight, const std::function<std::uint64_t()>& aNext) {
    tagReads aReads{{}, -1, nCount, nLength, aNext};
    Require(uv_loop_init(&aReads.aLoop) == 0, "uv_loop_init");
    uv_fs_t aRequest;
    aReads.nFile = uv_fs_open(&aReads.aLoop, &aRequest, strPath.c_str(), O_RDONLY, 0, nullptr);
    uv_fs_req_cleanup(&aRequest);
    Require(aReads.nFile >= 0, "uv_fs_open");
    std::vector<tagRead> vecReads(nInFlight);
    for (tagRead& aRead : vecReads) {
        aRead.pReads = &aReads;
        aRead.vecBytes.resize(nLength);
        aRead.aRequest.data = &aRead;
        PostRead(&aRead);
    }
    uv_run(&aReads.aLoop, UV_RUN_DEFAULT);
    uv_fs_close(&aReads.aLoop, &aRequest, aReads.nFile, nullptr);
    uv_fs_req_cleanup(&aRequest);
    uv_loop_close(&aReads.aLoop);
}
