#include "tests/support/TraceLog.h"

#include <regex>
#include <utility>

TraceLog::TraceLog(CmInt32 lLevel) {
    CCmT120Trace::instance()->SetSink(
        [this](CmInt32 lLineLevel, const char* lpText) {
            static const std::regex s_address(" (this|m_hFD)=0x[0-9a-f]+");
            static const std::regex s_line(":[0-9]+ Assert failed: ");
            const std::string strLine = std::regex_replace(lpText, s_address, " $1=*");
            std::lock_guard<std::mutex> aLock(m_mutex);
            (lLineLevel == CCmT120Trace::Level_Error ? m_strErrors : m_strInfos) +=
                std::regex_replace(strLine, s_line, ":# Assert failed: ") + "\n";
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
