#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "bench/Appender.h"

/// The memory that a recorder needs if it is faster than the disk and has set a limit of pending
/// bytes. A new process measures it.

namespace {

/// Returns one value of /proc/self/status, in KiB.
long StatusOf(const std::string& strField) {
    std::ifstream aStatus("/proc/self/status");
    for (std::string strWord; aStatus >> strWord;)
        if (strWord == strField) {
            long nValue = 0;
            aStatus >> nValue;
            return nValue;
        }
    throw std::runtime_error("/proc/self/status");
}

}  // namespace

void MeasureMemory(const tagBenchOptions& aOptions) {
    std::vector<std::string> vecPaths;
    for (int i = 0; i < 4; ++i)
        vecPaths.push_back(aOptions.strDirectory + "/memory-" + std::to_string(i));
    const std::string strPiece(1000, 'x');
    const long nBefore = StatusOf("VmRSS:");
    std::ofstream("/proc/self/clear_refs") << "5\n";  // resets the peak
    const auto pAppender = Library({true, c_qwLimit})(vecPaths);
    for (std::size_t i = 0; i < 200'000; ++i)
        pAppender->Append(i % vecPaths.size(), strPiece.data(), strPiece.size());
    pAppender->Finish();
    std::printf("MiB=%.2f\n", static_cast<double>(StatusOf("VmHWM:") - nBefore) / 1024);
    for (const std::string& strPath : vecPaths) ::unlink(strPath.c_str());
}

void AddMemory(tagBench& aBench) {
    const char* const lpWorkload = "memory, burst with a limit";
    aBench.vecContestants.push_back({lpWorkload, "cachefile async, limit 4 MiB",
                                     [&aBench] { return RunChild(aBench, c_szMemory); }});
    aBench.vecFigures.push_back({"growth of memory, limit 4 MiB, in MiB", "MiB", lpWorkload,
                                 "cachefile async, limit 4 MiB", "", "", 8});
}
