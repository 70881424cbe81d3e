#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "tools/cachefile/Progress.h"

/// The commands, one file each. Each adds itself to the tool; when it is asked for, it runs and
/// sets how the tool ends.
void AddBench(CLI::App& aTool, int& nExit);
void AddDoctor(CLI::App& aTool, int& nExit);
void AddExtract(CLI::App& aTool, int& nExit);
void AddInfo(CLI::App& aTool, int& nExit);
void AddList(CLI::App& aTool, int& nExit);
void AddMap(CLI::App& aTool, int& nExit);
void AddPack(CLI::App& aTool, int& nExit);
void AddPlay(CLI::App& aTool, int& nExit);
void AddRecord(CLI::App& aTool, int& nExit);

/// Options that several commands have, with the same words everywhere.
namespace Options {

void AddPath(CLI::App& aCommand, std::string& strPath, const std::string& strHelp);
void AddJson(CLI::App& aCommand, bool& bJson);
void AddForce(CLI::App& aCommand, bool& bForce);
void AddProgress(CLI::App& aCommand, ProgressMode& aMode);
/// A repeatable option with one value each.
CLI::Option* AddEach(CLI::App& aCommand, const std::string& strName,
                     std::vector<std::string>& vecValues, const std::string& strHelp);
/// What stands at the end of the help.
void AddExample(CLI::App& aCommand, const std::string& strExample);

}  // namespace Options
