#pragma once

#include <string>

/// The library's trace lines, as the tool uses them: to show them, and to learn the system's own
/// reason of a failure, which result codes do not carry. Any thread may trace at any time.
namespace Trace {

/// Reads the lines from now on; bShow also writes each to standard error.
void Listen(bool bShow);

/// Names the file object that the library made last, as its trace lines do.
std::string LastFileObject();

/// The errno of the first failure that was traced for this object, or 0.
int FirstErrno(const std::string& strObject);

}  // namespace Trace
