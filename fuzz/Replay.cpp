#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// Runs a target once over each file of some directories, so that the inputs that fuzzing has found
// are tested with every compiler.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* lpBytes, std::size_t dwSize);

int main(int nArguments, char** lpArguments) {
    int nFiles = 0;
    for (int i = 1; i < nArguments; ++i) {
        for (const auto& aEntry : std::filesystem::directory_iterator(lpArguments[i])) {
            std::ifstream aFile(aEntry.path(), std::ios::binary);
            const std::string strBytes{std::istreambuf_iterator<char>(aFile), {}};
            std::fprintf(stderr, "%s\n", aEntry.path().filename().string().c_str());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(strBytes.data()),
                                   strBytes.size());
            ++nFiles;
        }
    }
    std::printf("%d files\n", nFiles);
    return nFiles > 0 ? 0 : 1;
}
