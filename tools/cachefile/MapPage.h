#pragma once

#include <string>
#include <vector>

#include "tools/cachefile/Layout.h"

/// The page without its contents: map.html, in which words such as @DATA@ are replaced.
extern const char c_szMapTemplate[];

/// A page with the map, which can be zoomed, the findings and the table of streams. It needs no
/// other file and no network.
std::string DrawPage(const tagRecording& aRecording, const std::vector<tagRegion>& vecRegions);
