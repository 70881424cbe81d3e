#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "download/ContainerIndex.h"

/// One stream of a recording: an entry of a container's index, or a record file of a directory.
struct tagStream {
    tagFileDescriber aDescriber{};
    bool bKnown = false;                ///< aDescriber is valid: the tag is known
    std::optional<std::uint16_t> wTag;  ///< a directory's stream may have none
    CmUint32 dwExtraInfo = 0;
    std::uint64_t qwEntryOffset = 0;      ///< containers only, like the following
    std::uint64_t qwOffset = 0;           ///< of its first byte
    std::uint64_t qwExtent = 0;           ///< derived length: up to the next part, or the end
    std::uint64_t qwPresent = 0;          ///< how many of these bytes the file has
    std::size_t nHiddenBy = 0;            ///< number of the earlier entry with the same name, or 0
    const char* lpUnreachable = nullptr;  ///< another reason why a player cannot read it

    bool IsReachable() const { return bKnown && nHiddenBy == 0 && !lpUnreachable; }
    std::string Name() const;  ///< TYPE:ID:KIND, or "?" for an unknown tag
};

/// The streams of an index, with what can be derived about them: where the bytes of each end
/// (CContainerIndex::GetStreamExtent), and which earlier entry hides it. Throws CFailure if there
/// is not enough memory.
std::vector<tagStream> LayOutStreams(const CContainerIndex& aIndex);
