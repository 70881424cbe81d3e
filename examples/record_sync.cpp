// The smallest recorder: synchronous mode, in which the calling thread does all the work.
//
//     record_sync [DIRECTORY]

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "cachefile.h"
#include "tools/HostPath.h"

namespace {

constexpr CmUint32 c_dwRecordID = 1;
constexpr char c_szFile[] = "notes.txt";

bool Succeeded(const char* lpStep, CmInt32 lResult) {
    if (lResult == CACHE_OK) return true;
    std::fprintf(stderr, "record_sync: %s: %s (%s)\n", lpStep, CacheFileResultText(lResult),
                 CacheFileResultName(lResult));
    return false;
}

// Writes one file and checks every result.
bool Record(CWriteFileHandler& aHandler, std::uint64_t& qwWritten) {
    CmUint32 dwHandle = 0;
    if (!Succeeded("open", aHandler.OpenWritingFile(c_szFile, dwHandle))) return false;
    for (const char* lpLine : {"The recording begins.\n", "Somebody speaks.\n", "It ends.\n"}) {
        const CmUint32 dwLength = static_cast<CmUint32>(std::strlen(lpLine));
        // The offset GetMaxDword means append. The bytes are copied during the call.
        const CmInt32 lResult =
            aHandler.WriteData(dwHandle, reinterpret_cast<const unsigned char*>(lpLine), dwLength,
                               CCacheFileManager::GetMaxDword());
        if (!Succeeded("write", lResult)) return false;
        qwWritten += dwLength;
    }
    return Succeeded("close", aHandler.CloseFile(dwHandle));
}

}  // namespace

int main(int argc, char** argv) {
    // The home directory. It contains a directory for each recording, named by its number.
    const std::string strDirectory = argc > 1 ? argv[1] : "recordings";
    CCacheFileManager& aManager = CCacheFileManager::Instance();
    aManager.SetTempHomeDir(HostDirectory(strDirectory));

    CHandlerPtr<CWriteFileHandler> pHandler(aManager.CreateWriteFileHandler(c_dwRecordID, 0));
    if (!pHandler) {
        Succeeded("create a handler", CACHE_ERR_OUT_OF_MEMORY);
        return 1;
    }

    // Synchronous mode has no callbacks for writes, so no sink is needed.
    std::uint64_t qwWritten = 0;
    const bool bRecorded =
        Succeeded("initialize", pHandler->Initialize(nullptr)) && Record(*pHandler, qwWritten);
    pHandler.reset();  // destroys the handler, which writes the gathered bytes
    if (!bRecorded) return 1;

    // Bytes are gathered into blocks. If the close could not write the last block, no result says
    // so, but its bytes are counted here.
    if (CCacheFileManager::GetLostBytes() > 0) {
        std::fprintf(stderr, "record_sync: not everything could be written\n");
        return 1;
    }
    std::printf("wrote %llu bytes to %s/%u/%s\n", static_cast<unsigned long long>(qwWritten),
                strDirectory.c_str(), static_cast<unsigned>(c_dwRecordID), c_szFile);
    return 0;
}
