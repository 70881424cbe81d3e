#include "tests/support/TraceLog.h"

#include <algorithm>
#include <utility>

namespace {

/// Replaces the characters of lpSet that follow strLabel by lpBy, at each occurrence.
void Blank(std::string& strLine, const std::string& strLabel, const char* lpSet, const char* lpBy) {
    std::size_t n = 0;
    while ((n = strLine.find(strLabel, n)) != std::string::npos) {
        n += strLabel.size();
        strLine.replace(n, std::min(strLine.find_first_not_of(lpSet, n), strLine.size()) - n, lpBy);
    }
}

}  // namespace

TraceLog::TraceLog(CmInt32 lLevel) {
    CCmT120Trace::instance()->SetSink(
        [this](CmInt32 lLineLevel, const char* lpText) {
            std::string strLine = lpText;
            Blank(strLine, " this=", "0123456789abcdefx", "*");
            Blank(strLine, " m_hFD=", "0123456789abcdefx", "*");
            if (strLine.find(" Assert failed: ") != std::string::npos)
                Blank(strLine, ".cpp:", "0123456789", "#");
            std::lock_guard<std::mutex> aLock(m_mutex);
            (lLineLevel == CCmT120Trace::Level_Error ? m_strErrors : m_strInfos) += strLine + "\n";
        },
        lLevel);
}

TraceLog::~TraceLog() { CCmT120Trace::instance()->SetSink({}); }

std::string TraceLog::Take(std::string& strLines) {
    std::lock_guard<std::mutex> aLock(m_mutex);
    return std::exchange(strLines, {});
}

std::string Assertion(const std::string& strFile, const std::string& strExpression) {
    return strFile + ":# Assert failed: " + strExpression + "\n";
}
