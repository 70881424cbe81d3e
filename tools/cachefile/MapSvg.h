#pragma once

#include <string>
#include <vector>

#include "tools/cachefile/Layout.h"

// The picture of a container's layout. The interactive page (MapPage.h) uses the same classes of
// colours, from MapColours.

/// "stream 3 (4:7004:4)", or only the kind of a region that belongs to no stream.
std::string DescribeRegion(const tagRegion& aRegion, const tagRecording& aRecording);

/// The class of a region's colour. Streams have four, in turn, and neighbours differ in lightness
/// too. Damage also has a pattern, so that it can be recognised without its colour.
std::string MapClass(const tagRegion& aRegion);

/// The style sheet of these classes, for light and dark surroundings.
std::string MapColours();

/// The patterns that the style sheet uses.
std::string MapPatterns();

/// A drawing with a title, a bar of the file, a scale and a legend. Neighbouring parts that are too
/// small to be seen are drawn as one part, so its size is limited. Damage is always drawn.
std::string DrawSvg(const tagRecording& aRecording, const std::vector<tagRegion>& vecRegions);
