#include "tools/cachefile/Packing.h"

#include <algorithm>
#include <cstring>
#include <fstream>

#include "download/ContainerWriter.h"
#include "platform/CmResult.h"
#include "tools/HostPath.h"
#include "tools/cachefile/Checksum.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Player.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

constexpr std::uint64_t c_qwBlock = 262144;

std::string LibraryPath(const tagPackSource& aSource) {
    return HostDirectory(aSource.strDirectory) + StreamFileName(aSource.aDescriber);
}

/// Names the source that caused the failure, as the user wrote it, or else the container.
[[noreturn]] void ThrowPacking(const tagPacking& aPacking,
                               const CContainerWriter::tagFailure& aFailure, CmInt32 lResult) {
    std::string strFile = "the container";
    for (const tagPackSource& aSource : aPacking.vecSources)
        if (LibraryPath(aSource) == aFailure.strFile)
            strFile = aSource.strDirectory + "/" + StreamFileName(aSource.aDescriber);
    throw CFailure("cannot pack " + Printable(strFile) + ": " + aFailure.lpReason +
                   (aFailure.nErrno ? std::string(": ") + std::strerror(aFailure.nErrno) : "") +
                   " (" + CacheFileResultName(lResult) + ")");
}

void AddSources(CContainerWriter& aWriter, const tagPacking& aPacking) {
    for (const tagPackSource& aSource : aPacking.vecSources) {
        const CCmString strPath = LibraryPath(aSource);
        const CmInt32 lResult = aSource.bGrows
                                    ? aWriter.AddStreamFile(aSource.aPacked, strPath,
                                                            static_cast<CmUint32>(aSource.qwSize))
                                    : aWriter.AddStreamFile(aSource.aPacked, strPath);
        if (lResult != CACHE_OK) ThrowPacking(aPacking, aWriter.GetLastFailure(), lResult);
    }
}

void PutWord(std::vector<char>& vecBytes, std::size_t nAt, CmUint32 dwWord) {
    for (unsigned i = 0; i < 4; ++i) vecBytes[nAt + i] = static_cast<char>(dwWord >> 8 * i & 0xFF);
}

/// The writer sets two words of the conf stream. All other bytes must be those of the file.
void SetHeader(const tagPacking& aPacking, const tagPackSource& aSource,
               std::vector<char>& vecBytes) {
    tagMRFD aEntry{};
    if (!aPacking.aHeader || FileDescriberToTag(aSource.aPacked, aEntry) != CACHE_OK ||
        aEntry.wTag != c_wConfTag)
        return;
    PutWord(vecBytes, c_dwFileVersionOffset, aPacking.aHeader->dwFileVersion);
    PutWord(vecBytes, c_dwCBTimeStampOffset, aPacking.aHeader->dwCBTimeStamp);
}

class CVerification {
 public:
    CVerification(const tagPacking& aPacking, const std::filesystem::path& aPath)
        : m_packing(aPacking),
          m_recording(RequireContainer(aPath.string())),
          m_player(m_recording, nullptr),
          m_progress(aPacking.aProgress, "verify", aPacking.CountBytes()) {}

    void Run() {
        // The container has the streams in the order of the sources.
        for (std::size_t i = 0; i < m_packing.vecSources.size(); ++i) Compare(i);
        m_progress.Finish(m_qwDone);
    }

 private:
    void Compare(std::size_t nIndex) {
        const tagPackSource& aSource = m_packing.vecSources[nIndex];
        if (nIndex >= m_recording.vecStreams.size()) Differs(aSource);
        const tagStream& aStream = m_recording.vecStreams[nIndex];
        if (aStream.Name() != StreamName(aSource.aPacked) || aStream.qwPresent != aSource.qwSize)
            Differs(aSource);
        std::ifstream aFile(
            System::NativePath(aSource.strDirectory) / StreamFileName(aSource.aDescriber),
            std::ios::binary);
        CChecksum aChecksum;
        std::vector<char> vecBytes;
        for (std::uint64_t qwAt = 0; qwAt < aSource.qwSize; qwAt += vecBytes.size()) {
            if (System::IsInterrupted()) throw Interrupted();
            vecBytes.resize(static_cast<std::size_t>(std::min(c_qwBlock, aSource.qwSize - qwAt)));
            if (!aFile.read(vecBytes.data(), static_cast<std::streamsize>(vecBytes.size())))
                Differs(aSource);
            aChecksum.Add(vecBytes.data(), vecBytes.size());
            if (qwAt == 0) SetHeader(m_packing, aSource, vecBytes);
            if (!HasBytes(aSource, qwAt, vecBytes)) Differs(aSource);
            m_progress.Show(m_qwDone += vecBytes.size());
        }
        if (!aSource.strChecksum.empty() && aSource.strChecksum != aChecksum.GetText())
            throw CFailure("verification failed: the file of " + StreamName(aSource.aDescriber) +
                           " has another checksum than it was closed with; nothing was written");
    }

    bool HasBytes(const tagPackSource& aSource, std::uint64_t qwAt,
                  const std::vector<char>& vecBytes) {
        const auto dwLength = static_cast<CmUint32>(vecBytes.size());
        return m_player.Read(aSource.aPacked, qwAt, dwLength) == CACHE_OK &&
               m_player.GetLength() == dwLength &&
               std::equal(vecBytes.begin(), vecBytes.end(),
                          reinterpret_cast<const char*>(m_player.GetData()));
    }

    [[noreturn]] static void Differs(const tagPackSource& aSource) {
        throw CFailure("verification failed: " + StreamName(aSource.aPacked) +
                       " in the container differs from its file; nothing was written");
    }

    const tagPacking& m_packing;
    const tagRecording m_recording;
    CPlayer m_player;
    CProgress m_progress;
    std::uint64_t m_qwDone = 0;
};

}  // namespace

std::uint64_t tagPacking::CountBytes() const {
    std::uint64_t qwBytes = 0;
    for (const tagPackSource& aSource : vecSources) qwBytes += aSource.qwSize;
    return qwBytes;
}

void WriteContainer(const tagPacking& aPacking, const CPartialName& aPartial) {
    CContainerWriter aWriter;
    aWriter.SetIndexType(aPacking.dwIndexType);
    if (aPacking.aHeader)
        aWriter.SetFileHeader(aPacking.aHeader->dwFileVersion, aPacking.aHeader->dwCBTimeStamp);
    AddSources(aWriter, aPacking);
    CProgress aProgress(aPacking.aProgress, "pack", aPacking.CountBytes());
    const CmInt32 lResult = aWriter.Write(
        HostPath(aPartial.GetPath().u8string()), [&](std::uint64_t qwDone, std::uint64_t qwTotal) {
            aProgress.Show(qwDone, qwTotal > 0 && qwDone == qwTotal ? "waiting for the disk" : "");
            return !System::IsInterrupted();
        });
    if (System::IsInterrupted()) throw Interrupted();
    if (lResult != CACHE_OK) ThrowPacking(aPacking, aWriter.GetLastFailure(), lResult);
    aProgress.Finish(aPacking.CountBytes());
}

void VerifyContainer(const tagPacking& aPacking, const std::filesystem::path& aPath) {
    CVerification(aPacking, aPath).Run();
}
