#include <cachefile.h>

#include <cstdio>

int main() {
    CCacheFileManager& manager = CCacheFileManager::Instance();
    manager.SetTempHomeDir(".\\recordings\\");  // a backslash separates on every system

    // Recording 12, synchronous mode: this thread does all the work. Appends are gathered.
    CHandlerPtr<CWriteFileHandler> handler(manager.CreateWriteFileHandler(12, 0));
    if (!handler) return 1;

    const unsigned char bytes[] = {'h', 'e', 'l', 'l', 'o', '\n'};
    CmUint32 file = 0;
    CmInt32 result = handler->Initialize(nullptr);  // no callbacks in this mode
    if (result == CACHE_OK) result = handler->OpenWritingFile("greeting.txt", file);
    if (result == CACHE_OK)
        result = handler->WriteData(file, bytes, sizeof bytes, CCacheFileManager::GetMaxDword());
    if (result == CACHE_OK) result = handler->CloseFile(file);
    handler.reset();  // destroys the handler

    if (result != CACHE_OK) std::fprintf(stderr, "%s\n", CacheFileResultText(result));
    return result == CACHE_OK && CCacheFileManager::GetLostBytes() == 0 ? 0 : 1;
}
