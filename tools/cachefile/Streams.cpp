#include "tools/cachefile/Streams.h"

#include <charconv>
#include <string_view>

#include "download/ContainerFormat.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"

namespace {

/// Parses a decimal number at the start of strText, followed by strEnd, and removes both from it.
template <class T>
bool TakeNumber(std::string_view& strText, T& aNumber, std::string_view strEnd) {
    const char* const lpEnd = strText.data() + strText.size();
    const std::from_chars_result aResult = std::from_chars(strText.data(), lpEnd, aNumber);
    if (aResult.ec != std::errc()) return false;
    strText.remove_prefix(static_cast<std::size_t>(aResult.ptr - strText.data()));
    if (strText.substr(0, strEnd.size()) != strEnd) return false;
    strText.remove_prefix(strEnd.size());
    return true;
}

std::optional<tagFileDescriber> Parse(std::string_view strText, std::string_view strAfterType,
                                      std::string_view strAfterID, std::string_view strAfterKind) {
    tagFileDescriber aDescriber{};
    const bool bGood = TakeNumber(strText, aDescriber.wDataType, strAfterType) &&
                       TakeNumber(strText, aDescriber.dwFileID, strAfterID) &&
                       TakeNumber(strText, aDescriber.byFileType, strAfterKind) &&
                       strText.empty() && aDescriber.byFileType != 0;
    return bGood ? std::optional(aDescriber) : std::nullopt;
}

std::string Join(const tagFileDescriber& aDescriber, const char* lpAfterType, const char* lpAfterID,
                 const char* lpAfterKind) {
    std::string strName = std::to_string(aDescriber.wDataType);
    strName.append(lpAfterType).append(std::to_string(aDescriber.dwFileID));
    strName.append(lpAfterID).append(std::to_string(aDescriber.byFileType));
    return strName.append(lpAfterKind);
}

}  // namespace

std::string StreamName(const tagFileDescriber& aDescriber) {
    return Join(aDescriber, ":", ":", "");
}

std::string StreamFileName(const tagFileDescriber& aDescriber) {
    return Join(aDescriber, "_", "-", ".dat");
}

std::optional<tagFileDescriber> ParseStreamName(const std::string& strName) {
    return Parse(strName, ":", ":", "");
}

std::optional<tagFileDescriber> ParseStreamFileName(const std::string& strName) {
    const std::optional<tagFileDescriber> aDescriber = Parse(strName, "_", "-", ".dat");
    return aDescriber && StreamFileName(*aDescriber) == strName ? aDescriber : std::nullopt;
}

tagFileDescriber RequireStream(const std::string& strName) {
    const std::optional<tagFileDescriber> aDescriber = ParseStreamName(strName);
    if (aDescriber) return *aDescriber;
    throw CFailure("'" + strName +
                       "' is not a stream name: expected TYPE:ID:KIND, all decimal (TYPE up to "
                       "65535, KIND from 1 to 255)",
                   Exit_Usage);
}

std::string PackFault(const tagFileDescriber& aDescriber, std::uint64_t qwSize) {
    tagMRFD aEntry{};
    if (FileDescriberToTag(aDescriber, aEntry) != CACHE_OK)
        return "no container tag has its type, kind and id";
    if (qwSize >= c_qwPlayable) return "it is larger than 4 GiB - 1 bytes";
    if (aEntry.wTag == c_wConfTag && qwSize < c_dwEntryFileHeaderSize)
        return "it is shorter than the " + std::to_string(c_dwEntryFileHeaderSize) +
               " bytes of its header";
    return {};
}

void WarnOfSize(const tagFileDescriber& aDescriber, std::uint64_t qwSize) {
    if (qwSize >= c_qwPlayable)
        Warn(StreamName(aDescriber) +
             " is larger than 4 GiB - 1 bytes: no container can hold it, and only its first 4 GiB "
             "can be played");
}
