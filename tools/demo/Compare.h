#pragma once

#include <string>

#include "tools/demo/Source.h"

/// Compares the file strPath with everything that aSource gives, byte for byte. Throws a
/// CDemoError that names the first difference.
void CompareWithSource(ISource& aSource, const std::string& strPath);
