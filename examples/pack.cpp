// Packs record files into a container, which holds a whole recording in one file.
//
//     pack CONTAINER FILE...         (each FILE becomes a stream)

#include <cstdio>

#include "cachefile.h"
#include "tools/HostPath.h"

namespace {

constexpr std::uint16_t c_wTag = 268;  // data type 4, kind 4; ids are n * 1000 + 4
constexpr CmUint32 c_dwFileVersion = 1;
constexpr CmUint32 c_dwTimeStamp = 1700000000;

bool Succeeded(const char* lpStep, CmInt32 lResult) {
    if (lResult == CACHE_OK) return true;
    std::fprintf(stderr, "pack: %s: %s (%s)\n", lpStep, CacheFileResultText(lResult),
                 CacheFileResultName(lResult));
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: pack CONTAINER FILE...\n");
        return 2;
    }
    CContainerWriter aWriter;
    aWriter.SetFileHeader(c_dwFileVersion, c_dwTimeStamp);
    for (int n = 2; n < argc; ++n) {
        const CmUint32 dwNumber = static_cast<CmUint32>(n - 1);
        // If the file does not exist, Write reports that.
        if (!Succeeded(argv[n], aWriter.AddTagStreamFile(c_wTag, dwNumber, 0, HostPath(argv[n]))))
            return 1;
    }
    // Until the container is complete, its file has another name.
    if (!Succeeded(argv[1], aWriter.Write(HostPath(argv[1])))) return 1;
    std::printf("packed %d streams into %s\n", argc - 2, argv[1]);
    return 0;
}
