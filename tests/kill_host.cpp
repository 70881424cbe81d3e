#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "cachefile.h"
#include "tests/kill_host.h"
#include "tests/support/Files.h"

// A recorder that goes on until it is killed: kill_host sync|async SEED, in a directory with the
// file of promises, which its killer has made.

int main(int nArguments, char** lpArguments) {
    if (nArguments != 3) return 2;
    const int bAsync = std::strcmp(lpArguments[1], "async") == 0;
    unsigned nRandom = static_cast<unsigned>(std::strtoul(lpArguments[2], nullptr, 10));
    const int nFile = ::open(c_szPromises, O_RDWR);
    void* const pShared =
        ::mmap(nullptr, sizeof(Promises), PROT_READ | PROT_WRITE, MAP_SHARED, nFile, 0);
    if (pShared == MAP_FAILED) return 3;
    auto& aPromises = *static_cast<Promises*>(pShared);

    const CCmCallerThreadGuard aAttached;
    CWriteFileHandler* const pHandler =
        CCacheFileManager::Instance().CreateWriteFileHandler(7, bAsync);
    CmUint32 aHandles[c_nStreams];
    std::size_t aWritten[c_nStreams] = {};
    std::size_t aFlushed[c_nStreams] = {};
    if (pHandler->Initialize(nullptr) != 0) return 4;
    for (unsigned i = 0; i < c_nStreams; ++i)
        if (pHandler->OpenWritingFile(std::to_string(i), aHandles[i]) != 0) return 5;
    const CCmString aStreams[c_nStreams] = {StreamOf(0), StreamOf(1), StreamOf(2)};
    for (;;) {
        nRandom = nRandom * 1664525 + 1013904223;
        const unsigned i = (nRandom >> 8) % c_nStreams;
        const std::size_t nPiece = (nRandom >> 16) % (nRandom % 8 == 0 ? 60'000 : 3'000);
        if (aWritten[i] + nPiece > c_nLongest) break;
        const auto* const lpPiece =
            reinterpret_cast<const unsigned char*>(aStreams[i].data()) + aWritten[i];
        if (pHandler->WriteData(aHandles[i], lpPiece, static_cast<CmUint32>(nPiece), 0xFFFFFFFF))
            return 6;
        aWritten[i] += nPiece;
        if (nRandom >> 29 == 0) {
            pHandler->FlushData(aHandles[i]);
            aFlushed[i] = aWritten[i];
            while (nRandom >> 26 == 0 && CCacheFileManager::GetPendingBytes() > 0) ::usleep(10);
        }
        // Asynchronous: what had been flushed when nothing was pending is in its file.
        if (CCacheFileManager::GetPendingBytes() == 0)
            for (unsigned n = 0; n < c_nStreams; ++n) {
                aPromises.aFlushed[n] = aFlushed[n];
                if (aFlushed[n] > 0) aPromises.bStarted = true;
            }
        if (bAsync) CCmCallerThread::RunPending();
    }
    aPromises.bStarted = true;
    for (;;) ::pause();
}
