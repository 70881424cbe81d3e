#pragma once

/// Reads the words the tool was started with and runs the command they name; returns how the tool
/// ends. Throws CFailure for words that can't be understood, and what the commands throw.
///
/// The grammar stands in one place, since its package takes long to compile.
int RunCommandLine(int argc, char** argv);
