#include "tests/support/TraceLog.h"

#include <cctype>
#include <utility>

namespace {

/// Replaces the characters that follow strLabel and pass aTest, if there are any.
template <class Test>
void Blank(std::string& strLine, const std::string& strLabel, const char* lpBy, Test aTest) {
    for (std::size_t n = strLine.find(strLabel); n != std::string::npos;) {
        const std::size_t nBegin = n + strLabel.size();
        std::size_t nEnd = nBegin;
        while (nEnd < strLine.size() && aTest(static_cast<unsigned char>(strLine[nEnd]))) ++nEnd;
        if (nEnd > nBegin) strLine.replace(nBegin, nEnd - nBegin, lpBy);
        n = strLine.find(strLabel, nBegin + 1);
    }
}

std::string Comparable(std::string strLine) {
    const auto isHex = [](int c) { return std::isxdigit(c) != 0; };
    for (const char* const lpLabel : {" this=0x", " m_hFD=0x"}) Blank(strLine, lpLabel, "*", isHex);
    for (std::size_t n; (n = strLine.find("=0x*")) != std::string::npos;) strLine.erase(n + 1, 2);
    if (strLine.find(" Assert failed: ") != std::string::npos)
        Blank(strLine, ".cpp:", "#", [](int c) { return std::isdigit(c) != 0; });
    return strLine;
}

}  // namespace

TraceLog::TraceLog(CmInt32 lLevel) {
    CCmT120Trace::instance()->SetSink(
        [this](CmInt32 lLineLevel, const char* lpText) {
            std::lock_guard<std::mutex> aLock(m_mutex);
            std::string& strLines =
                lLineLevel == CCmT120Trace::Level_Error ? m_strErrors : m_strInfos;
            strLines += Comparable(lpText) + "\n";
        },
        lLevel);
}

TraceLog::~TraceLog() { CCmT120Trace::instance()->SetSink({}); }

std::string TraceLog::Take(CmInt32 lLevel) {
    std::lock_guard<std::mutex> aLock(m_mutex);
    return std::exchange(lLevel == CCmT120Trace::Level_Error ? m_strErrors : m_strInfos, {});
}

std::string Assertion(const std::string& strFile, const std::string& strExpression) {
    return strFile + ":# Assert failed: " + strExpression + "\n";
}
