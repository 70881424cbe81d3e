#include "tools/HostPath.h"

#include <gtest/gtest.h>

namespace {

struct tagPath {
    const char* lpUser;
    const char* lpDirectory;
};

TEST(HostPathTest, TakesTheFormOfTheLibrary) {
    const bool bDrives = std::filesystem::path::preferred_separator != '/';
    const tagPath aPaths[] = {{"out/a", R"(.\out\a\)"},
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
    for (const tagPath& aPath : aPaths)
        EXPECT_EQ(HostDirectory(aPath.lpUser), aPath.lpDirectory) << aPath.lpUser;
    EXPECT_EQ(HostPath("out/a.bin"), R"(.\out\a.bin)");
}

}  // namespace
