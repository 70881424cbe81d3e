#include <fcntl.h>
#include <unistd.h>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "bench/Appender.h"

namespace {

/// A minimal double buffer: the caller fills preallocated blocks, and a worker writes and returns
/// them. It has no file objects, results or error handling, so it is the lower bound for a library
/// that has them. HandOver_WholePieces follows the library's rule: an append is never split, so a
/// full block includes all bytes of the append that filled it.
class CHandOverAppender final : public IAppender {
 public:
    CHandOverAppender(const std::vector<std::string>& vecPaths, HandOver aKind)
        : m_aKind(aKind), m_vecCurrent(vecPaths.size(), nullptr) {
        for (const std::string& strPath : vecPaths) {
            m_vecFiles.push_back(
                ::open(strPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
            Require(m_vecFiles.back() >= 0, "open");
        }
        m_vecBlocks.resize(c_nBlocks);
        for (tagBlock& aBlock : m_vecBlocks) {
            std::memset(aBlock.aBytes, 1, sizeof aBlock.aBytes);
            m_vecFree.push_back(&aBlock);
        }
        m_vecFull.reserve(c_nBlocks);
        m_thread = std::thread([this] { Run(); });
    }

    void Append(std::size_t nFile, const char* lpData, std::size_t nLength) override {
        tagBlock*& pBlock = m_vecCurrent[nFile];
        if (!pBlock) pBlock = TakeFree();
        const bool bWhole = m_aKind == HandOver_WholePieces;
        Require(!bWhole || nLength <= c_nLargestWhole, "a small piece");
        while (!bWhole && pBlock->nUsed + nLength > c_nBlock) {
            const std::size_t nPart = c_nBlock - pBlock->nUsed;
            std::memcpy(pBlock->aBytes + pBlock->nUsed, lpData, nPart);
            pBlock->nUsed += nPart;
            lpData += nPart;
            nLength -= nPart;
            Post(nFile, pBlock);
            pBlock = TakeFree();
        }
        std::memcpy(pBlock->aBytes + pBlock->nUsed, lpData, nLength);
        pBlock->nUsed += nLength;
        if (!bWhole || pBlock->nUsed < c_nBlock) return;
        Post(nFile, pBlock);
        pBlock = nullptr;
    }

    void Finish() override {
        for (std::size_t i = 0; i < m_vecCurrent.size(); ++i)
            if (m_vecCurrent[i]) Post(i, m_vecCurrent[i]);
        {
            std::lock_guard<std::mutex> aLock(m_mutex);
            m_bStopped = true;
        }
        m_wake.notify_one();
        m_thread.join();
        for (int nFile : m_vecFiles) ::close(nFile);
    }

 private:
    static constexpr std::size_t c_nBlocks = 256;
    static constexpr std::size_t c_nWakeUp = 64;  // this many full blocks end a nap
    static constexpr std::size_t c_nLargestWhole = 1024;
    struct tagBlock {
        std::size_t nFile = 0;
        std::size_t nUsed = 0;
        char aBytes[c_nBlock + c_nLargestWhole];
    };

    void Post(std::size_t nFile, tagBlock* pBlock) {
        pBlock->nFile = nFile;
        bool bWake = false;
        {
            std::lock_guard<std::mutex> aLock(m_mutex);
            m_vecFull.push_back(pBlock);
            if (m_bSleeps && (!m_bNaps || m_vecFull.size() >= c_nWakeUp)) {
                bWake = true;
                m_bSleeps = false;
            }
        }
        if (bWake) m_wake.notify_one();
    }

    tagBlock* TakeFree() {
        std::unique_lock<std::mutex> aLock(m_mutex);
        m_given.wait(aLock, [this] { return !m_vecFree.empty(); });
        tagBlock* const pBlock = m_vecFree.back();
        m_vecFree.pop_back();
        return pBlock;
    }

    void Run() {
        std::vector<tagBlock*> vecBatch;
        vecBatch.reserve(c_nBlocks);
        std::unique_lock<std::mutex> aLock(m_mutex);
        for (;;) {
            m_bSleeps = true;
            if (m_aKind == HandOver_Napping && !m_bStopped) {
                m_bNaps = true;
                m_wake.wait_for(aLock, std::chrono::milliseconds(2),
                                [this] { return !m_bSleeps || m_bStopped; });
                m_bNaps = false;
            }
            m_wake.wait(aLock, [this] { return !m_vecFull.empty() || m_bStopped; });
            m_bSleeps = false;
            if (m_vecFull.empty()) return;
            vecBatch.swap(m_vecFull);
            for (tagBlock* pBlock : vecBatch) {
                aLock.unlock();
                Require(::write(m_vecFiles[pBlock->nFile], pBlock->aBytes, pBlock->nUsed) ==
                            static_cast<ssize_t>(pBlock->nUsed),
                        "write");
                pBlock->nUsed = 0;
                aLock.lock();
                const bool bNone = m_vecFree.empty();
                m_vecFree.push_back(pBlock);
                if (bNone) m_given.notify_one();
            }
            vecBatch.clear();
        }
    }

    const HandOver m_aKind;
    std::vector<int> m_vecFiles;
    std::vector<tagBlock> m_vecBlocks;
    std::vector<tagBlock*> m_vecCurrent;
    std::mutex m_mutex;
    std::condition_variable m_wake, m_given;
    // Guarded by m_mutex.
    std::vector<tagBlock*> m_vecFree, m_vecFull;
    bool m_bStopped = false, m_bSleeps = false, m_bNaps = false;
    std::thread m_thread;
};

}  // namespace

std::unique_ptr<IAppender> MakeHandOver(const std::vector<std::string>& vecPaths, HandOver aKind) {
    return std::make_unique<CHandOverAppender>(vecPaths, aKind);
}
