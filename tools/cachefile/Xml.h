#pragma once

#include <string>

/// A text for XML and HTML, also inside an attribute. Characters that XML cannot contain become
/// "?".
std::string EscapeXml(const std::string& strText);
