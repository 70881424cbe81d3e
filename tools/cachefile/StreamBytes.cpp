#include "tools/cachefile/StreamBytes.h"

#include <algorithm>
#include <fstream>

#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

constexpr std::uint64_t c_qwBlock = 262144;

/// aRead fills a block from a position of the stream and returns how many bytes it has read.
template <class Read>
std::uint64_t ReadBlocks(std::uint64_t qwLength, const TakeBytes& aTake, Read aRead) {
    std::vector<unsigned char> vecBlock(static_cast<std::size_t>(std::min(qwLength, c_qwBlock)));
    std::uint64_t qwRead = 0;
    while (qwRead < qwLength) {
        if (System::IsInterrupted()) throw Interrupted();
        const auto nPart =
            static_cast<std::size_t>(std::min<std::uint64_t>(qwLength - qwRead, vecBlock.size()));
        const std::size_t nRead = aRead(qwRead, vecBlock.data(), nPart);
        if (nRead == 0) break;
        aTake(vecBlock.data(), nRead);
        qwRead += nRead;
    }
    return qwRead;
}

}  // namespace

std::uint64_t ReadPart(CContainerIndex& aIndex, std::uint64_t qwOffset, std::uint64_t qwLength,
                       const std::string& strName, const TakeBytes& aTake) {
    return ReadBlocks(qwLength, aTake,
                      [&](std::uint64_t qwAt, unsigned char* lpBlock, std::size_t nPart) {
                          auto dwRead = static_cast<CmUint32>(nPart);
                          const CmInt32 lResult = aIndex.ReadData(qwOffset + qwAt, lpBlock, dwRead);
                          if (lResult == CACHE_OK) return static_cast<std::size_t>(dwRead);
                          Warn(ResultText("cannot read " + strName, lResult));
                          return std::size_t{0};
                      });
}

std::uint64_t ReadFile(const std::filesystem::path& aPath, std::uint64_t qwLength,
                       const TakeBytes& aTake) {
    std::ifstream aFile(aPath, std::ios::binary);
    const auto aRead = [&](std::uint64_t, unsigned char* lpBlock, std::size_t nPart) {
        aFile.read(reinterpret_cast<char*>(lpBlock), static_cast<std::streamsize>(nPart));
        return static_cast<std::size_t>(aFile.gcount());
    };
    const std::uint64_t qwRead = ReadBlocks(qwLength, aTake, aRead);
    if (!aFile.is_open() || aFile.bad()) Warn("cannot read " + Printable(aPath.u8string()));
    return qwRead;
}

std::uint64_t ReadStream(const tagRecording& aRecording, const tagStream& aStream,
                         const TakeBytes& aTake) {
    if (aRecording.IsContainer())
        return ReadPart(*aRecording.pIndex, aStream.qwOffset, aStream.qwPresent, aStream.Name(),
                        aTake);
    return ReadFile(System::NativePath(aRecording.strPath) / StreamFileName(aStream.aDescriber),
                    aStream.qwPresent, aTake);
}
