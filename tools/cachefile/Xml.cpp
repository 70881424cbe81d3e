#include "tools/cachefile/Xml.h"

#include <string_view>

#include "platform/CmTypes.h"
#include "tools/cachefile/Output.h"

namespace {

/// The length of the next UTF-8 character in bytes, or 0 if XML cannot contain it.
std::size_t CharacterLength(std::string_view strText) {
    const auto byFirst = static_cast<unsigned char>(strText.front());
    const std::size_t nLength = byFirst < 0x80                      ? 1
                                : byFirst >= 0xC2 && byFirst < 0xE0 ? 2
                                : byFirst >= 0xE0 && byFirst < 0xF0 ? 3
                                : byFirst >= 0xF0 && byFirst < 0xF5 ? 4
                                                                    : 0;
    if (nLength > strText.size()) return 0;
    CmUint32 dwCode = nLength == 1 ? byFirst : byFirst & (0x7FU >> nLength);
    for (std::size_t i = 1; i < nLength; ++i) {
        if ((strText[i] & 0xC0) != 0x80) return 0;
        dwCode = dwCode << 6 | (static_cast<unsigned char>(strText[i]) & 0x3FU);
    }
    const bool bTooLong = (nLength == 3 && dwCode < 0x800) || (nLength == 4 && dwCode < 0x10000);
    const bool bNone = (dwCode >= 0xD800 && dwCode < 0xE000) || dwCode == 0xFFFE ||
                       dwCode == 0xFFFF || dwCode > 0x10FFFF;
    return bTooLong || bNone ? 0 : nLength;
}

}  // namespace

std::string EscapeXml(const std::string& strText) {
    std::string strGood;
    const std::string strPrintable = Printable(strText);
    for (std::size_t nAt = 0; nAt < strPrintable.size();) {
        const std::size_t nLength = CharacterLength(std::string_view(strPrintable).substr(nAt));
        strGood += nLength ? strPrintable.substr(nAt, nLength) : "?";
        nAt += nLength ? nLength : 1;
    }
    std::string strResult;
    for (const char c : strGood) {
        if (c == '&')
            strResult += "&amp;";
        else if (c == '<')
            strResult += "&lt;";
        else if (c == '>')
            strResult += "&gt;";
        else if (c == '"')
            strResult += "&quot;";
        else
            strResult += c;
    }
    return strResult;
}
