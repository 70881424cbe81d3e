#pragma once

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

/// Workloads, contestants and results.

struct tagBenchOptions {
    std::string strDirectory = ".";  // for the files of a run
    std::string strOnly;             // run only workloads whose name contains this
    std::string strJson;             // output file; empty: none
    int nRepetitions = 5;
    double dScale = 1.0;   // factor for the amounts of work
    std::string strChild;  // set when the benchmark starts itself: the work to measure
};

/// The values of one run, by the name of the metric.
using Metrics = std::map<std::string, double>;

/// One program, or one implementation, that runs a workload.
struct tagContestant {
    std::string strWorkload;
    std::string strName;
    std::function<Metrics()> aRun;
    std::map<std::string, std::vector<double>>
        mapValues{};  // for each metric, one value per repetition
};

/// A target of the library: an upper limit for the ratio of two contestants' values.
struct tagFigure {
    std::string strName;
    std::string strMetric;
    std::string strWorkload, strContestant;
    std::string strBaseWorkload, strBase;  // if empty, the value itself is the figure
    double dWanted;                        // the target: the largest acceptable figure
};

struct tagBench {
    const tagBenchOptions& aOptions;
    const std::string strProgram;  // the path of the benchmark, which can start itself
    std::vector<tagContestant> vecContestants;
    std::vector<tagFigure> vecFigures;

    std::size_t Amount(std::size_t nFull) const {
        return static_cast<std::size_t>(static_cast<double>(nFull) * aOptions.dScale) + 1;
    }
    std::string Path(const std::string& strName) const {
        return aOptions.strDirectory + "/" + strName;
    }
    const tagContestant* Find(const std::string& strWorkload, const std::string& strName) const;
};

/// Each function adds its workloads and figures, with the peers that were found at build time.
void AddAppends(tagBench& aBench);
void AddSyncedAppends(tagBench& aBench);
void AddReads(tagBench& aBench);
void AddContainers(tagBench& aBench);
void AddOpening(tagBench& aBench);
void AddMemory(tagBench& aBench);

/// Measures strWork in a new process, where earlier workloads cannot change the result.
Metrics RunChild(const tagBench& aBench, const std::string& strWork);

/// The work of such a process. Each prints lines of the form "metric=value".
void MeasureOpening(const tagBenchOptions& aOptions);
void MeasureMemory(const tagBenchOptions& aOptions);
constexpr char c_szMemory[] = "memory";  // any other work is one of MeasureOpening

void PrintTables(const tagBench& aBench);
void WriteJson(const tagBench& aBench);

/// Throws lpWhat if bHolds is false, which ends the benchmark.
inline void Require(bool bHolds, const char* lpWhat) {
    if (!bHolds) throw std::runtime_error(lpWhat);
}

double Median(std::vector<double> vecValues);
