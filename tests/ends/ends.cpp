#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>
#else
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <thread>

#include "async/FileThreadManager.h"
#include "tests/support/HostTest.h"

// Ends a recorder in every way that the system has. usage:
//   cachefile_ends            runs each case in a process, and checks its status and its file
//   cachefile_ends MODE KIND  is such a process: MODE is 0 (synchronous) or 1 (asynchronous)
// The file .\kvr2\7\a gets a few blocks, which are written, then the queue is filled, and a few
// bytes stay gathered. If a kind of end loses the queue, the worker is held in an event while the
// process ends, so that the file must have exactly the blocks that were written before.

namespace {

constexpr int c_nStatus = 3;  // the recorder's own
constexpr int c_nFailed = 98, c_nCalledLate = 97;
constexpr unsigned c_nWritten = 5, c_nBlocks = 105;
constexpr std::size_t c_nBlock = 40'000;
constexpr const char* c_lpTail = "gathered";

bool s_bMayCall = false;  // the host is there, and a callback ends the process

void Call() { s_bMayCall ? std::exit(c_nStatus) : std::_Exit(c_nCalledLate); }

class Sink final : public IFileOpSink {
    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType, CmInt32) override {
        Call();
    }
    void OnDataReady(unsigned char*, CmUint32, const tagDataInfo&) override { Call(); }
};

CCmString Blocks(unsigned nCount) {
    CCmString strAll;
    for (unsigned i = 0; i < nCount; ++i) strAll += Pattern(c_nBlock, i);
    return strAll;
}

Sink s_sink;

/// What a recorder never destroys.
CWriteFileHandler* s_pHandler = nullptr;
ThreadGate* s_pGate = nullptr;
CmUint32 s_dwHandle = 0;
Mode s_aMode = Sync;

void Record(Mode aMode, bool bHold) {
    CCmCallerThread::Attach();
    s_aMode = aMode;
    s_pHandler = CCacheFileManager::Instance().CreateWriteFileHandler(7, aMode);
    const auto write = [&](const CCmString& strBytes) {
        return s_pHandler->WriteData(s_dwHandle, BytesOf(strBytes),
                                     static_cast<CmUint32>(strBytes.size()), c_dwEnd);
    };
    if (s_pHandler->Initialize(&s_sink) != 0 || s_pHandler->OpenWritingFile("a", s_dwHandle) != 0)
        std::_Exit(c_nFailed);
    for (unsigned i = 0; i < c_nBlocks; ++i) {
        if (i == c_nWritten && aMode == Async) {
            const CRefPtr<ACmThread> pWorker =
                CFileThreadManager::Instance()->GetPrimaryNFSThread();
            RunOn(pWorker, nullptr);
            if (bHold) s_pGate = new ThreadGate(pWorker);
        }
        if (write(Pattern(c_nBlock, i)) != 0) std::_Exit(c_nFailed);
    }
    if (write(c_lpTail) != 0) std::_Exit(c_nFailed);
    s_pHandler->SetHomeDir("missing\\x");
    CmUint32 dwNone =
        0;  // in asynchronous mode this fails on the worker, which traces and reports it
    if ((s_pHandler->OpenWritingFile("b", dwNone) == 0) != (aMode == Async)) std::_Exit(c_nFailed);
}

int Exit() { std::exit(c_nStatus); }
int Return() { return c_nStatus; }
int ExitOnAThread() {
    std::thread(Exit).join();
    return 0;
}
/// In asynchronous mode the callback reports the open; in synchronous mode it has the bytes of a
/// read.
int ExitInACallback() {
    s_bMayCall = true;
    if (s_aMode == Async) return CCmCallerThread::WaitAndRun(60'000);
    CPlayFileHandler* const pPlayer = CCacheFileManager::Instance().CreatePlayFileHandler(7, 0, 0);
    pPlayer->Initialize(&s_sink);
    pPlayer->OpenRecordFile("a", {1, 2, 1001, 0}, 0);
    return pPlayer->ReadData({1, 1001, 0, 2}, new unsigned char[1], 0, 1);
}
int ExitImmediately() { std::_Exit(c_nStatus); }
int Abort() { std::abort(); }
int Throw() {
    std::thread([] { throw std::runtime_error("nobody catches this"); }).join();
    return 0;
}
#ifdef _WIN32
int ExitProcessOfWindows() { ::ExitProcess(c_nStatus); }
int Terminate() {
    ::TerminateProcess(::GetCurrentProcess(), c_nStatus);
    return 0;
}
constexpr int c_nAborted = 3;
#else
constexpr int c_nAborted = -SIGABRT;
int CloseAndReturn() { return s_pHandler->CloseFile(s_dwHandle) == 0 ? c_nStatus : c_nFailed; }
int DestroyAndReturn() { return s_pHandler->Destroy() == 0 ? c_nStatus : c_nFailed; }
/// The worker waits until the library has dropped the host's callable and trace sink. It then
/// traces the failed open.
int ExitBusy() {
    static bool s_bGone = false;
    const auto use = [] { s_bGone ? std::_Exit(c_nCalledLate) : void(); };
    std::shared_ptr<void> pDropped(nullptr, [](void*) { delete s_pGate; });
    CCmT120Trace::instance()->SetSink([use](CmInt32, const char*) { use(); });
    CCmCallerThread::SetWakeUp([use, pDropped = std::move(pDropped)] { use(); });
    s_bGone = true;
    std::exit(c_nStatus);
}
/// Runs after the library has ended its worker, because it was registered before.
void CallLate() {
    CmUint32 dwNone = 0;
    if (s_pHandler->OpenWritingFile("late", dwNone) != (s_aMode == Async ? 4010 : 4001) ||
        (s_aMode == Async && s_pHandler->Destroy() != 0) || CacheFileShutdown() != 0)
        std::_Exit(c_nCalledLate);
}
int QuickExit() { std::quick_exit(c_nStatus); }
[[maybe_unused]] int ExitAfterMain() {
    std::thread([nMain = ::pthread_self()] {
        ::pthread_join(nMain, nullptr);
        std::exit(c_nStatus);
    }).detach();
    ::pthread_exit(nullptr);
}
/// A child has its parent's queue but no worker. Each child ends in another way.
int Fork() {
    for (int (*const pEnd)() : {Exit, QuickExit, ExitImmediately}) {
        const pid_t nChild = ::fork();
        if (nChild == 0) {
            ::alarm(60);
            pEnd();
        }
        int nStatus = -1;
        ::waitpid(nChild, &nStatus, 0);
        if (nStatus != c_nStatus << 8) std::_Exit(c_nFailed);
    }
    return c_nStatus;
}
#endif

#ifdef _WIN32
constexpr bool c_bExitWrites = false;  // a thread cannot be joined that late
#else
constexpr bool c_bExitWrites = true;
#endif

const struct Kind {
    const char* lpName;
    int (*pEnd)();
    int nStatus;              // negative: a signal
    bool bWrites;             // whether everything that was accepted is written
    const char* lpTail = "";  // what is in the file after the blocks
    bool bHolds = !bWrites;   // the worker is held
} c_aKinds[] = {
    {"return", Return, c_nStatus, c_bExitWrites},
    {"exit", Exit, c_nStatus, c_bExitWrites},
    {"exit-on-a-thread", ExitOnAThread, c_nStatus, c_bExitWrites},
    {"exit-in-a-callback", ExitInACallback, c_nStatus, c_bExitWrites},
    {"_Exit", ExitImmediately, c_nStatus, false},
    {"abort", Abort, c_nAborted, false},
    {"uncaught-exception", Throw, c_nAborted, false},
#ifdef _WIN32
    {"ExitProcess", ExitProcessOfWindows, c_nStatus, c_bExitWrites},
    {"TerminateProcess", Terminate, c_nStatus, false},
#else
    {"quick_exit", QuickExit, c_nStatus, false},
#ifndef __SANITIZE_THREAD__  // it reports the main thread, which ends unjoined
    {"pthread_exit-of-main", ExitAfterMain, c_nStatus, true},
#endif
    {"fork", Fork, c_nStatus, true},
    {"close-and-return", CloseAndReturn, c_nStatus, true, c_lpTail},
    {"destroy-and-return", DestroyAndReturn, c_nStatus, true, c_lpTail},
    {"exit-with-a-busy-worker", ExitBusy, c_nStatus, true, "", true},
#endif
};

int Run(Mode aMode, const Kind& aKind) {
#ifndef _WIN32
    ::alarm(60);
    const rlimit aNoCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &aNoCore);
    if (aKind.pEnd == Exit) std::atexit(CallLate);
#endif
    Record(aMode, aKind.bHolds);
    return aKind.pEnd();
}

/// The exit status, or the negative number of the signal.
int StatusOf(const std::string& strCommand) {
#ifdef _WIN32
    return std::system(strCommand.c_str());
#else
    const int nStatus = std::system(("exec " + strCommand).c_str());
    return WIFSIGNALED(nStatus) ? -WTERMSIG(nStatus) : WEXITSTATUS(nStatus);
#endif
}

bool Check(const std::string& strProgram, Mode aMode, const Kind& aKind) {
    const TestDir aDir;
    const int nStatus = StatusOf(strProgram + " " + std::to_string(aMode) + " " + aKind.lpName);
    const bool bAll = aMode == Sync || aKind.bWrites;
    const std::string strDifference = Difference(
        ReadBytes(Recording::PathOf("a")), Blocks(bAll ? c_nBlocks : c_nWritten) + aKind.lpTail);
    const bool bGood = nStatus == aKind.nStatus && strDifference.empty();
    std::printf("%s %s: status %d, %s%s%s\n", aMode == Async ? "asynchronous" : "synchronous",
                aKind.lpName, nStatus, bAll ? "all blocks" : "what was written before",
                bGood ? "" : " WRONG ", strDifference.c_str());
    std::fflush(stdout);
    return bGood;
}

}  // namespace

/// The leak sanitizer calls this at the end. A recorder that ends like this frees nothing.
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() { return 1; }

int main(int nArguments, char** lpArguments) {
    bool bGood = true;
    for (const Kind& aKind : c_aKinds) {
        for (const Mode aMode : {Sync, Async}) {
            if (nArguments < 3)
                bGood = Check(std::filesystem::absolute(lpArguments[0]).string(), aMode, aKind) &&
                        bGood;
            else if (aMode == std::atoi(lpArguments[1]) &&
                     std::string(aKind.lpName) == lpArguments[2])
                return Run(aMode, aKind);
        }
    }
    return bGood ? 0 : 1;
}
