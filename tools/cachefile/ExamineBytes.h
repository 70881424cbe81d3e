#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tools/cachefile/Findings.h"
#include "tools/cachefile/Recording.h"

/// Offsets, each with the index of its stream. There may be millions of them.
using Places = std::vector<std::pair<CmUint32, CmUint32>>;

void SortPlaces(Places& vecPlaces);

/// "entry 2 (4:7004:4)"
std::string DescribeEntry(const tagRecording& aRecording, std::size_t nIndex);

/// "1 byte", "2,000 bytes"
std::string ByteCount(std::uint64_t qwCount);

/// Examines which bytes of a container its streams use. Adds findings for streams that start in a
/// wrong place, noted lengths that do not fit, and unused bytes. vecEntries: the sorted offsets of
/// the entries.
void ExamineBytes(const tagRecording& aRecording, const Places& vecEntries,
                  CFindingList& aFindings);
