#pragma once

#include <string>

/// Reads the trace lines of the library: to show them, and to find the system's reason of a
/// failure, which the result codes do not have. Any thread may trace at any time.
namespace Trace {

/// Starts to read the lines. If bShow is true, also writes each to standard error.
void Listen(bool bShow);

/// The name of the last file object that the library made, as its trace lines show it.
std::string LastFileObject();

/// The errno of the first failure that was traced for this object, or 0.
int FirstErrno(const std::string& strObject);

}  // namespace Trace
