#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "bench/Appender.h"
#include "bench/Clock.h"

/// Contestants without a second thread: the standard library and plain system calls.

namespace {

class CStdioAppender final : public IAppender {
 public:
    CStdioAppender(const std::vector<std::string>& vecPaths, double dSyncInterval)
        : m_qwInterval(CClock::ToTicks(dSyncInterval * 1e9)),
          m_vecNext(vecPaths.size(), CClock::Now() + m_qwInterval) {
        for (const std::string& strPath : vecPaths) {
            std::FILE* const pFile = std::fopen(strPath.c_str(), "wb");
            Require(pFile != nullptr, "fopen");
            // glibc ignores the size if the buffer is null.
            m_vecBuffers.emplace_back(new char[c_nBlock]);
            std::setvbuf(pFile, m_vecBuffers.back().get(), _IOFBF, c_nBlock);
            m_vecFiles.push_back(pFile);
        }
    }
    void Append(std::size_t nFile, const char* lpData, std::size_t nLength) override {
        Require(std::fwrite(lpData, 1, nLength, m_vecFiles[nFile]) == nLength, "fwrite");
        if (m_qwInterval > 0 && CClock::Now() >= m_vecNext[nFile]) Sync(nFile);
    }
    void Finish() override {
        for (std::FILE* pFile : m_vecFiles) std::fclose(pFile);
    }

 private:
    void Sync(std::size_t nFile) {
        std::FILE* const pFile = m_vecFiles[nFile];
        Require(std::fflush(pFile) == 0 && ::fdatasync(::fileno(pFile)) == 0, "fdatasync");
        m_vecNext[nFile] = CClock::Now() + m_qwInterval;
    }

    const std::uint64_t m_qwInterval;  // ticks
    std::vector<std::uint64_t> m_vecNext;
    std::vector<std::FILE*> m_vecFiles;
    std::vector<std::unique_ptr<char[]>> m_vecBuffers;
};

/// Gathers appends until there are at least nThreshold bytes, and writes them with one call.
class CGatherAppender final : public IAppender {
 public:
    CGatherAppender(const std::vector<std::string>& vecPaths, std::size_t nThreshold)
        : m_nThreshold(nThreshold), m_vecGathered(vecPaths.size()) {
        for (const std::string& strPath : vecPaths) {
            m_vecFiles.push_back(
                ::open(strPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
            Require(m_vecFiles.back() >= 0, "open");
        }
    }
    void Append(std::size_t nFile, const char* lpData, std::size_t nLength) override {
        if (nLength >= m_nThreshold) return Write(nFile, lpData, nLength);
        std::string& strGathered = m_vecGathered[nFile];
        strGathered.append(lpData, nLength);
        if (strGathered.size() < m_nThreshold) return;
        Write(nFile, strGathered.data(), strGathered.size());
        strGathered.clear();
    }
    void Finish() override {
        for (std::size_t i = 0; i < m_vecFiles.size(); ++i) {
            Write(i, m_vecGathered[i].data(), m_vecGathered[i].size());
            ::close(m_vecFiles[i]);
        }
    }

 private:
    void Write(std::size_t nFile, const char* lpData, std::size_t nLength) {
        Require(::write(m_vecFiles[nFile], lpData, nLength) == static_cast<ssize_t>(nLength),
                "write");
    }

    const std::size_t m_nThreshold;
    std::vector<int> m_vecFiles;
    std::vector<std::string> m_vecGathered;
};

/// The lower bound of an append: it only copies the bytes.
class CMemcpyAppender final : public IAppender {
 public:
    explicit CMemcpyAppender(std::size_t nFiles) : m_vecBlocks(nFiles), m_vecUsed(nFiles, 0) {
        for (auto& vecBlock : m_vecBlocks) vecBlock.resize(c_nCapacity);
    }
    void Append(std::size_t nFile, const char* lpData, std::size_t nLength) override {
        std::size_t& nUsed = m_vecUsed[nFile];
        if (nUsed + nLength > c_nCapacity) nUsed = 0;
        std::memcpy(m_vecBlocks[nFile].data() + nUsed, lpData, nLength);
        nUsed += nLength;
    }
    void Finish() override {}

 private:
    static constexpr std::size_t c_nCapacity = c_nBlock;
    std::vector<std::vector<char>> m_vecBlocks;
    std::vector<std::size_t> m_vecUsed;
};

}  // namespace

std::unique_ptr<IAppender> MakeStdio(const std::vector<std::string>& vecPaths,
                                     double dSyncInterval) {
    return std::make_unique<CStdioAppender>(vecPaths, dSyncInterval);
}

std::unique_ptr<IAppender> MakeGather(const std::vector<std::string>& vecPaths) {
    return std::make_unique<CGatherAppender>(vecPaths, c_nBlock);
}

std::unique_ptr<IAppender> MakeDirect(const std::vector<std::string>& vecPaths) {
    return std::make_unique<CGatherAppender>(vecPaths, 0);
}

std::unique_ptr<IAppender> MakeMemcpy(const std::vector<std::string>& vecPaths) {
    return std::make_unique<CMemcpyAppender>(vecPaths.size());
}
