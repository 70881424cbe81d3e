#include <algorithm>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "bench/Bench.h"

namespace {

struct tagSummary {
    double dMedian, dMin, dMax;
};

tagSummary Summarize(const std::vector<double>& vecValues) {
    const auto range = std::minmax_element(vecValues.begin(), vecValues.end());
    return {Median(vecValues), *range.first, *range.second};
}

/// For each repetition, the contestant's value divided by the value of the base.
std::vector<double> ValuesOf(const tagBench& aBench, const tagFigure& aFigure) {
    const tagContestant* const pOne = aBench.Find(aFigure.strWorkload, aFigure.strContestant);
    if (!pOne || pOne->mapValues.empty()) return {};
    std::vector<double> vecValues = pOne->mapValues.at(aFigure.strMetric);
    if (aFigure.strBase.empty()) return vecValues;
    const tagContestant* const pBase = aBench.Find(aFigure.strBaseWorkload, aFigure.strBase);
    if (!pBase || pBase->mapValues.empty()) return {};
    const std::vector<double>& vecBase = pBase->mapValues.at(aFigure.strMetric);
    for (std::size_t i = 0; i < vecValues.size(); ++i) vecValues[i] /= vecBase[i];
    return vecValues;
}

/// The median of the figure is the ratio of the medians.
tagSummary SummarizeFigure(const tagBench& aBench, const tagFigure& aFigure,
                           const std::vector<double>& vecValues) {
    tagSummary aSummary = Summarize(vecValues);
    if (!aFigure.strBase.empty()) {
        const auto median = [&](const std::string& strWorkload, const std::string& strName) {
            return Median(aBench.Find(strWorkload, strName)->mapValues.at(aFigure.strMetric));
        };
        aSummary.dMedian = median(aFigure.strWorkload, aFigure.strContestant) /
                           median(aFigure.strBaseWorkload, aFigure.strBase);
    }
    return aSummary;
}

/// Prints the text in a column of nWidth characters.
void PrintLeft(const std::string& strText, int nWidth) {
    std::printf("%-*s", nWidth, strText.c_str());
}

}  // namespace

double Median(std::vector<double> vecValues) {
    std::sort(vecValues.begin(), vecValues.end());
    const std::size_t n = vecValues.size();
    return n % 2 ? vecValues[n / 2] : (vecValues[n / 2 - 1] + vecValues[n / 2]) / 2;
}

const tagContestant* tagBench::Find(const std::string& strWorkload,
                                    const std::string& strName) const {
    for (const tagContestant& aContestant : vecContestants)
        if (aContestant.strWorkload == strWorkload && aContestant.strName == strName)
            return &aContestant;
    return nullptr;
}

void PrintTables(const tagBench& aBench) {
    std::string strWorkload;
    for (const tagContestant& aContestant : aBench.vecContestants) {
        if (aContestant.mapValues.empty()) continue;
        if (aContestant.strWorkload != strWorkload) {
            strWorkload = aContestant.strWorkload;
            std::printf("\n%-34s %-10s %12s %12s %12s\n", strWorkload.c_str(), "", "median", "min",
                        "max");
        }
        for (const auto& [strMetric, vecValues] : aContestant.mapValues) {
            const tagSummary aSummary = Summarize(vecValues);
            PrintLeft("  " + aContestant.strName, 34);
            std::printf(" %-10s %12.1f %12.1f %12.1f\n", strMetric.c_str(), aSummary.dMedian,
                        aSummary.dMin, aSummary.dMax);
        }
    }
    std::printf("\n%-58s %8s %8s %8s %8s\n", "figure", "target", "median", "min", "max");
    for (const tagFigure& aFigure : aBench.vecFigures) {
        const std::vector<double> vecValues = ValuesOf(aBench, aFigure);
        if (vecValues.empty()) continue;
        const tagSummary aSummary = SummarizeFigure(aBench, aFigure, vecValues);
        std::printf("%-58s %8.2f %8.2f %8.2f %8.2f  %s\n", aFigure.strName.c_str(), aFigure.dWanted,
                    aSummary.dMedian, aSummary.dMin, aSummary.dMax,
                    aSummary.dMedian <= aFigure.dWanted ? "reached" : "not reached");
    }
    std::fflush(stdout);
}

void WriteJson(const tagBench& aBench) {
    nlohmann::ordered_json aResults = nlohmann::ordered_json::array();
    for (const tagContestant& aContestant : aBench.vecContestants)
        for (const auto& [strMetric, vecValues] : aContestant.mapValues) {
            const tagSummary aSummary = Summarize(vecValues);
            aResults.push_back({{"workload", aContestant.strWorkload},
                                {"contestant", aContestant.strName},
                                {"metric", strMetric},
                                {"median", aSummary.dMedian},
                                {"min", aSummary.dMin},
                                {"max", aSummary.dMax},
                                {"values", vecValues}});
        }
    nlohmann::ordered_json aFigures = nlohmann::ordered_json::array();
    for (const tagFigure& aFigure : aBench.vecFigures) {
        const std::vector<double> vecValues = ValuesOf(aBench, aFigure);
        if (vecValues.empty()) continue;
        const tagSummary aSummary = SummarizeFigure(aBench, aFigure, vecValues);
        aFigures.push_back({{"figure", aFigure.strName},
                            {"of", aFigure.strContestant},
                            {"to", aFigure.strBase},
                            {"wanted", aFigure.dWanted},
                            {"median", aSummary.dMedian},
                            {"min", aSummary.dMin},
                            {"max", aSummary.dMax}});
    }
    std::ofstream aOut(aBench.aOptions.strJson);
    aOut << nlohmann::ordered_json{{"processors", std::thread::hardware_concurrency()},
                                   {"repetitions", aBench.aOptions.nRepetitions},
                                   {"results", aResults},
                                   {"figures", aFigures}}
                .dump(1)
         << "\n";
    Require(bool{aOut.flush()}, "cannot write the JSON file");
}
