#pragma once

#include <mutex>
#include <string>

#include "platform/CmTrace.h"

/// Collects the trace lines while it exists. It replaces addresses by "*" and the line number of an
/// assertion by "#", so that lines can be compared.
class TraceLog {
 public:
    explicit TraceLog(CmInt32 lLevel = CCmT120Trace::Level_Info);
    ~TraceLog();
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;

    /// Returns and clears the lines of one level, each with a line break.
    std::string TakeErrors() { return Take(m_strErrors); }
    std::string TakeInfos() { return Take(m_strInfos); }

 private:
    std::string Take(std::string& strLines);

    std::mutex m_mutex;
    std::string m_strErrors;  // guarded by m_mutex
    std::string m_strInfos;   // guarded by m_mutex
};

/// Returns the assertion line of strExpression in strFile, as TraceLog shows it.
std::string Assertion(const std::string& strFile, const std::string& strExpression);
