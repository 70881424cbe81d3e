#include "tools/cachefile/RecordedStream.h"

#include <algorithm>
#include <tuple>

#include "platform/CmResult.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Streams.h"

namespace {

/// The data of most containers is sorted already.
template <class It, class Less>
void Order(It itBegin, It itEnd, Less aLess) {
    if (!std::is_sorted(itBegin, itEnd, aLess)) std::sort(itBegin, itEnd, aLess);
}

tagStream ReadEntry(const CContainerIndex& aIndex, std::size_t nIndex) {
    const tagIndexEntry& aFound = aIndex.GetEntry(nIndex);
    tagStream aStream;
    aStream.bKnown = TagToFileDescriber(aFound.aEntry, aStream.aDescriber) == CACHE_OK;
    aStream.wTag = aFound.aEntry.wTag;
    aStream.dwExtraInfo = aFound.aEntry.dwExtraInfo;
    aStream.qwEntryOffset = aFound.dwOffset;
    aStream.qwOffset = aFound.aEntry.dwDataOffset;
    tagStreamExtent aExtent;
    const CmInt32 lResult = aIndex.GetStreamExtent(nIndex, aExtent);
    if (lResult != CACHE_OK)
        throw CFailure(ResultText("cannot find where the streams end", lResult));
    aStream.qwExtent = aExtent.dwLength;
    const std::uint64_t qwSize = aIndex.GetFileSize();
    const std::uint64_t qwAvailable = qwSize > aStream.qwOffset ? qwSize - aStream.qwOffset : 0;
    aStream.qwPresent = std::min(aStream.qwExtent, qwAvailable);
    return aStream;
}

/// Of several entries with the same type, id and kind the first one is played. A kind in a
/// container is a single bit.
void FindHidden(std::vector<tagStream>& vecStreams) {
    std::vector<const tagStream*> vecOrder;
    vecOrder.reserve(vecStreams.size());
    for (const tagStream& aStream : vecStreams)
        if (aStream.bKnown) vecOrder.push_back(&aStream);
    const auto aKey = [](const tagStream* p) {
        const tagFileDescriber& a = p->aDescriber;
        return std::tuple(a.wDataType, a.dwFileID, a.byFileType);
    };
    Order(vecOrder.begin(), vecOrder.end(), [&](const tagStream* a, const tagStream* b) {
        return std::tuple(aKey(a), a) < std::tuple(aKey(b), b);
    });
    std::size_t nFirst = 0;
    for (std::size_t i = 1; i < vecOrder.size(); ++i)
        if (aKey(vecOrder[i]) == aKey(vecOrder[nFirst]))
            vecStreams[static_cast<std::size_t>(vecOrder[i] - vecStreams.data())].nHiddenBy =
                static_cast<std::size_t>(vecOrder[nFirst] - vecStreams.data()) + 1;
        else
            nFirst = i;
}

/// A player stops at a conf header that is cut off, and refuses to read streams that start after
/// the end given in the header.
void FindUnreachable(const CContainerIndex& aIndex, std::vector<tagStream>& vecStreams) {
    bool bStopped = false;
    for (tagStream& aStream : vecStreams) {
        if (bStopped)
            aStream.lpUnreachable = "after a cut-off header";
        else if (aStream.qwOffset > aIndex.GetFileHeader().dwFileSize)
            aStream.lpUnreachable = "past the end";
        bStopped = bStopped || (aStream.wTag == c_wConfTag &&
                                aStream.qwOffset + c_dwEntryFileHeaderSize > aIndex.GetFileSize());
    }
}

}  // namespace

std::string tagStream::Name() const { return bKnown ? StreamName(aDescriber) : "?"; }

std::vector<tagStream> LayOutStreams(const CContainerIndex& aIndex) {
    std::vector<tagStream> vecStreams;
    vecStreams.reserve(aIndex.GetEntryCount());
    for (std::size_t i = 0; i < aIndex.GetEntryCount(); ++i)
        vecStreams.push_back(ReadEntry(aIndex, i));
    FindHidden(vecStreams);
    FindUnreachable(aIndex, vecStreams);
    return vecStreams;
}
