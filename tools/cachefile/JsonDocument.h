#pragma once

#include <nlohmann/json.hpp>
#include <string>

using Json = nlohmann::ordered_json;

/// The beginning of the one document that a command writes with --json. Names of fields keep their
/// meaning as long as the version stays; further fields may come.
Json NewDocument(const std::string& strCommand);

void PrintDocument(const Json& aDocument);
