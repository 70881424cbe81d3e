#pragma once

/// Parses the command line and runs the command that it names. Returns the exit code of the tool.
/// Throws CFailure if the command line is wrong, and what the commands throw.
///
/// One source file has the whole grammar, because CLI11 takes long to compile.
int RunCommandLine(int argc, char** argv);
