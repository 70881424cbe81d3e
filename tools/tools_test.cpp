// What the programs of this folder are built on: paths in the library's form, and a comparison that
// sees every difference.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "tools/HostPath.h"
#include "tools/demo/Compare.h"
#include "tools/demo/DemoError.h"

namespace {

int g_nFailures = 0;

void ExpectEqual(const std::string& strWhat, const std::string& strActual,
                 const std::string& strExpected) {
    if (strActual == strExpected) return;
    ++g_nFailures;
    std::fprintf(stderr, "%s: '%s' instead of '%s'\n", strWhat.c_str(), strActual.c_str(),
                 strExpected.c_str());
}

struct tagPath {
    const char* lpUser;
    const char* lpDirectory;
};

void TestDirectories() {
    const bool bDrives = std::filesystem::path::preferred_separator != '/';
    const std::vector<tagPath> vecPaths = {{"out/a", R"(.\out\a\)"},
                                           {"out/a/", R"(.\out\a\)"},
                                           {"/x", R"(\x\)"},
                                           {"/", R"(\)"},
                                           {"", R"(.\)"},
                                           {".", R"(.\)"},
                                           {"./out", R"(.\out\)"},
                                           {"../out", R"(..\out\)"},
                                           {".hidden/a", R"(.\.hidden\a\)"},
                                           {"c:/x", bDrives ? R"(c:\x\)" : R"(.\c:\x\)"},
                                           {R"(c:\x)", bDrives ? R"(c:\x\)" : R"(.\c:\x\)"}};
    for (const tagPath& aPath : vecPaths)
        ExpectEqual(aPath.lpUser, HostDirectory(aPath.lpUser), aPath.lpDirectory);
    ExpectEqual("a file", HostPath("out/a.bin"), R"(.\out\a.bin)");
}

/// Gives its text in pieces of four bytes.
class CTextSource final : public ISource {
 public:
    explicit CTextSource(std::string strText)
        : ISource("text", {}), m_strText(std::move(strText)) {}
    std::uint64_t GetSize() const override { return m_strText.size(); }
    void Rewind() override { m_nNext = 0; }
    bool Next(std::string& strPiece) override {
        if (m_nNext >= m_strText.size()) return false;
        strPiece = m_strText.substr(m_nNext, 4);
        m_nNext += strPiece.size();
        return true;
    }

 private:
    const std::string m_strText;
    std::size_t m_nNext = 0;
};

/// What the comparison of a source with a file says; nothing if they are equal.
std::string Compared(const std::string& strSource, const std::string& strFile) {
    static const char c_szPath[] = "tools_test.compared";
    std::ofstream(c_szPath, std::ios::binary) << strFile;
    CTextSource aSource(strSource);
    std::string strPiece;
    aSource.Next(strPiece);  // the comparison begins at the beginning all the same
    try {
        CompareWithSource(aSource, c_szPath);
    } catch (const CDemoError& aError) {
        const std::string strText = aError.what();
        return strText.substr(strText.rfind(": ") + 2);
    }
    return "";
}

void TestComparison() {
    ExpectEqual("equal", Compared("abcdefgh", "abcdefgh"), "");
    ExpectEqual("equal, odd", Compared("abcdefghi", "abcdefghi"), "");
    ExpectEqual("both empty", Compared("", ""), "");
    ExpectEqual("first byte", Compared("abcdefgh", "Abcdefgh"), "the byte at offset 0");
    ExpectEqual("later byte", Compared("abcdefgh", "abcdefGh"), "the byte at offset 6");
    ExpectEqual("empty file", Compared("abcdefgh", ""), "it ends after 0 bytes");
    ExpectEqual("cut at a piece", Compared("abcdefgh", "abcd"), "it ends after 4 bytes");
    ExpectEqual("cut in a piece", Compared("abcdefgh", "abcdef"), "it ends after 6 bytes");
    ExpectEqual("too long", Compared("abcdefgh", "abcdefghi"), "it goes on after 8 bytes");
    ExpectEqual("empty source", Compared("", "a"), "it goes on after 0 bytes");
}

}  // namespace

int main() {
    TestDirectories();
    TestComparison();
    return g_nFailures == 0 ? 0 : 1;
}
