#include "tools/demo/Compare.h"

#include <algorithm>
#include <fstream>

#include "tools/demo/DemoError.h"

namespace {

[[noreturn]] void Differ(const ISource& aSource, const std::string& strPath,
                         const std::string& strHow) {
    throw CDemoError(strPath + " differs from " + aSource.GetName() + ": " + strHow);
}

}  // namespace

void CompareWithSource(ISource& aSource, const std::string& strPath) {
    std::ifstream aFile(strPath, std::ios::binary);
    if (!aFile.is_open()) throw CDemoError(strPath + ": can't be opened for the comparison");
    std::uint64_t qwOffset = 0;
    std::string strPiece;
    std::string strRead;
    for (aSource.Rewind(); aSource.Next(strPiece);) {
        strRead.resize(strPiece.size());
        aFile.read(&strRead[0], static_cast<std::streamsize>(strRead.size()));
        strRead.resize(static_cast<std::size_t>(aFile.gcount()));
        const auto aEnds =
            std::mismatch(strRead.begin(), strRead.end(), strPiece.begin(), strPiece.end());
        qwOffset += static_cast<std::uint64_t>(aEnds.first - strRead.begin());
        if (aEnds.first != strRead.end())
            Differ(aSource, strPath, "the byte at offset " + std::to_string(qwOffset));
        if (aEnds.second != strPiece.end())
            Differ(aSource, strPath, "it ends after " + std::to_string(qwOffset) + " bytes");
    }
    if (aFile.peek() != std::ifstream::traits_type::eof())
        Differ(aSource, strPath, "it goes on after " + std::to_string(qwOffset) + " bytes");
}
