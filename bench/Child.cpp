#include <cstdio>

#include "bench/Bench.h"

namespace {

/// Reads lines of the form "metric=value".
Metrics ReadMetrics(std::FILE* pIn) {
    Metrics aMetrics;
    char aName[64];
    double dValue = 0;
    while (std::fscanf(pIn, " %63[^=]=%lf", aName, &dValue) == 2) aMetrics[aName] = dValue;
    return aMetrics;
}

}  // namespace

Metrics RunChild(const tagBench& aBench, const std::string& strWork) {
    const std::string strCommand = "'" + aBench.strProgram + "' --directory '" +
                                   aBench.aOptions.strDirectory + "' --child '" + strWork + "'";
    std::FILE* const pOut = ::popen(strCommand.c_str(), "r");
    Require(pOut != nullptr, "popen");
    const Metrics aMetrics = ReadMetrics(pOut);
    Require(::pclose(pOut) == 0 && !aMetrics.empty(), "a process of the benchmark");
    return aMetrics;
}
