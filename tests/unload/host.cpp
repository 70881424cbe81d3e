#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <filesystem>

#include "tests/faults/Memory.h"

// A host that unloads the library without a shutdown. Accepted bytes must be written, and no memory
// may be leaked. usage: unload_host PLUGIN LIBRARY

namespace {

const char* Round(const char* lpPlugin, const char* lpLibrary, int bAsync) {
    void* const pPlugin = ::dlopen(lpPlugin, RTLD_NOW | RTLD_LOCAL);
    if (!pPlugin) return ::dlerror();
    int (*pRecord)(int, int) = nullptr;
    void* const pSymbol = ::dlsym(pPlugin, "RecordSomething");
    std::memcpy(&pRecord, &pSymbol, sizeof pRecord);
    if (!pRecord || pRecord(bAsync, 0) != 0) return "recording failed";
    ::dlclose(pPlugin);
    if (::dlopen(lpLibrary, RTLD_NOW | RTLD_NOLOAD)) return "the library is still loaded";
    return std::filesystem::file_size("kvr2/9/unload.dat") == 2'000'000 ? nullptr : "bytes missing";
}

}  // namespace

int main(int nArguments, char** lpArguments) {
    if (nArguments != 3) return 2;
    std::filesystem::create_directories("kvr2/9");
    for (int nRound = 0; nRound < 6; ++nRound) {
        const std::size_t nPieces = Memory::InUse();
        const char* const lpFailure = Round(lpArguments[1], lpArguments[2], nRound % 2);
        const std::size_t nLeft = Memory::InUse() - nPieces;
        if (nLeft > 0) std::printf("%zu pieces of memory are left\n", nLeft);
        if (lpFailure) std::printf("%s\n", lpFailure);
        if (nLeft > 0 || lpFailure) return 1;
    }
    return 0;
}
