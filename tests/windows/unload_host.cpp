// Three times: loads a plug-in that uses the library, lets it record and shut down, and unloads it.
// If unloading waited for a thread of the library, it would hang.

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cstdio>
#include <filesystem>

static int Fail(const char* lpWhat) {
    std::fprintf(stderr, "unload_host: %s, error %lu\n", lpWhat, GetLastError());
    return 1;
}

int main(int nArguments, char** lpArguments) {
    if (nArguments != 2) return Fail("usage: unload_host PLUGIN");
    for (int nRound = 0; nRound < 3; ++nRound) {
        const HMODULE hPlugin = LoadLibraryA(lpArguments[1]);
        if (!hPlugin) return Fail("the plugin can't be loaded");
        using Record = long (*)(int, int);
        const auto pRecord = reinterpret_cast<Record>(
            reinterpret_cast<void*>(GetProcAddress(hPlugin, "RecordSomething")));
        if (!pRecord || pRecord(1, 1) != 0) return Fail("recording failed");
        if (!FreeLibrary(hPlugin)) return Fail("the plugin can't be unloaded");
        if (GetModuleHandleA("cachefile.dll")) return Fail("the library is still loaded");
        if (std::filesystem::file_size("kvr2\\9\\unload.dat") != 2000000)
            return Fail("bytes are missing");
    }
    std::puts("loaded, recorded and unloaded three times");
    return 0;
}
