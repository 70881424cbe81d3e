#pragma once

#include <stdexcept>
#include <string>

#include "platform/CmResult.h"

/// The exit codes of the tool.
enum ExitCode : int {
    Exit_Done = 0,
    Exit_Failed = 1,
    Exit_Usage = 2,
    Exit_Damage = 3,  ///< done, but damage or loss was found
    Exit_Interrupted = 130,
};

/// Ends the command with a message to the user on standard error.
class CFailure : public std::runtime_error {
 public:
    explicit CFailure(const std::string& strText, ExitCode aExit = Exit_Failed)
        : std::runtime_error(strText), m_exit(aExit) {}
    ExitCode GetExit() const { return m_exit; }

 private:
    ExitCode m_exit;
};

/// Ends the command because the user or the system interrupted the process.
struct Interrupted {};

/// "cannot X Y: no space left on the device (CACHE_ERR_DISK_FULL)"
inline std::string ResultText(const std::string& strWhat, CmInt32 lResult) {
    return strWhat + ": " + CacheFileResultText(lResult) + " (" + CacheFileResultName(lResult) +
           ")";
}
