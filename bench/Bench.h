#pragma once

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

/// What is measured, by whom, and what comes of it.

struct tagBenchOptions {
    std::string strDirectory = ".";  // where the files lie while it runs
    std::string strOnly;             // only workloads whose name holds this
    std::string strJson;             // where the JSON goes, if anywhere
    int nRepetitions = 5;
    double dScale = 1.0;   // of the amounts of work
    bool bMemory = false;  // only measures memory: how it calls itself
};

/// The values of one run by the name of what they measure.
using Metrics = std::map<std::string, double>;

/// One program, or one way of doing it, that does a workload.
struct tagContestant {
    std::string strWorkload;
    std::string strName;
    std::function<Metrics()> aRun;
    std::map<std::string, std::vector<double>> mapValues{};  // of each metric, one a repetition
};

/// A figure that the library wants to reach: a value of one contestant in relation to another's.
struct tagFigure {
    std::string strName;
    std::string strMetric;
    std::string strWorkload, strContestant;
    std::string strBaseWorkload, strBase;  // no base: the value itself is the figure
    double dWanted;                        // at most
};

struct tagBench {
    const tagBenchOptions& aOptions;
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

/// Each adds its workloads; the peers add themselves to those of others where they were found.
void AddAppends(tagBench& aBench);
void AddReads(tagBench& aBench);
void AddContainers(tagBench& aBench);
void AddMemory(tagBench& aBench, const std::string& strProgram);
int RunMemory(const tagBenchOptions& aOptions);

void PrintTables(const tagBench& aBench);
void WriteJson(const tagBench& aBench);

/// Ends the program with a word when something that is measured doesn't work at all.
inline void Require(bool bHolds, const char* lpWhat) {
    if (!bHolds) throw std::runtime_error(lpWhat);
}

double Median(std::vector<double> vecValues);
