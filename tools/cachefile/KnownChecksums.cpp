#include "tools/cachefile/KnownChecksums.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

constexpr std::uint64_t c_qwMaxSize = std::uint64_t{64} << 20;
constexpr std::size_t c_nDigits = 32;

std::string ReadText(const std::string& strPath) {
    const std::filesystem::path aPath = System::NativePath(strPath);
    std::error_code aError;
    const bool bFile = std::filesystem::is_regular_file(aPath, aError);
    if (!bFile)
        throw CFailure("cannot read " + Printable(strPath) + ": " +
                       (aError ? aError.message() : "it is not a regular file"));
    if (std::filesystem::file_size(aPath, aError) > c_qwMaxSize)
        throw CFailure(Printable(strPath) + " is larger than " + ByteSize(double(c_qwMaxSize)));
    std::ifstream aFile(aPath, std::ios::binary);
    std::stringstream aText;
    aText << aFile.rdbuf();
    if (!aFile.is_open() || aFile.bad()) throw CFailure("cannot read " + Printable(strPath));
    return aText.str();
}

/// Adds a stream, unless its name or checksum is not of the right form.
void Add(KnownStreams& mapKnown, const std::string& strFile, std::string strChecksum,
         std::optional<std::uint64_t> qwSize) {
    const auto aIsDigit = [](unsigned char c) { return std::isxdigit(c) != 0; };
    if (!ParseStreamFileName(strFile) || strChecksum.size() != c_nDigits ||
        !std::all_of(strChecksum.begin(), strChecksum.end(), aIsDigit))
        return;
    for (char& c : strChecksum) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    mapKnown[strFile] = {std::move(strChecksum), qwSize};
}

std::string TextField(const Json& aObject, const char* lpName) {
    const auto it = aObject.find(lpName);
    return it != aObject.end() && it->is_string() ? it->get<std::string>() : "";
}

/// Returns whether aDocument is the description of a recording.
bool AddDocument(KnownStreams& mapKnown, const Json& aDocument) {
    const auto itStreams = aDocument.find("streams");
    if (itStreams == aDocument.end() || !itStreams->is_array()) return false;
    for (const Json& aStream : *itStreams) {
        if (!aStream.is_object()) continue;
        std::optional<std::uint64_t> qwSize;
        const auto itBytes = aStream.find("bytes");
        if (itBytes != aStream.end() && itBytes->is_number_unsigned())
            qwSize = itBytes->get<std::uint64_t>();
        Add(mapKnown, TextField(aStream, "file"), TextField(aStream, "xxh3_128"), qwSize);
    }
    return true;
}

/// Lines are CHECKSUM, two spaces, and the path of a file.
void AddLines(KnownStreams& mapKnown, const std::string& strText) {
    std::istringstream aText(strText);
    for (std::string strLine; std::getline(aText, strLine);) {
        if (!strLine.empty() && strLine.back() == '\r') strLine.pop_back();
        if (strLine.size() < c_nDigits + 2) continue;
        const std::string strFile = strLine.substr(c_nDigits + 2);
        Add(mapKnown, strFile.substr(strFile.find_last_of('/') + 1), strLine.substr(0, c_nDigits),
            std::nullopt);
    }
}

}  // namespace

KnownStreams ReadKnownStreams(const std::string& strPath) {
    const std::string strText = ReadText(strPath);
    KnownStreams mapKnown;
    const Json aDocument = Json::parse(strText, nullptr, false);
    if (aDocument.is_object() && AddDocument(mapKnown, aDocument)) return mapKnown;
    AddLines(mapKnown, strText);
    if (mapKnown.empty())
        throw CFailure(Printable(strPath) + " has no checksums and is no recording.json");
    return mapKnown;
}

KnownStreams FindKnownStreams(const std::string& strRecording, bool bContainer,
                              const std::string& strPath) {
    if (!strPath.empty()) return ReadKnownStreams(strPath);
    const std::string strFound = strRecording + (bContainer ? "." : "/") + c_szRecordingJson;
    std::error_code aIgnored;
    return std::filesystem::exists(System::NativePath(strFound), aIgnored)
               ? ReadKnownStreams(strFound)
               : KnownStreams{};
}
