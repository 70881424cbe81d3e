#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

using Json = nlohmann::ordered_json;

/// Has ReportError write JSON from now on. The command may be empty.
void UseJsonErrors(const std::string& strCommand);

/// Writes why the command fails to standard error: a line of text, or with --json an object.
void ReportError(const std::string& strText, int nExit);

/// The beginning of the one document that a command writes with --json. Names of fields keep their
/// meaning as long as the version stays; further fields may come.
Json NewDocument(const std::string& strCommand);

void PrintDocument(const Json& aDocument);

/// The same with a last field that is an array of nRows rows, a line each. There may be so many
/// that they are made one at a time: aRow gives the one of a number.
void PrintDocument(const Json& aDocument, const std::string& strRows, std::size_t nRows,
                   const std::function<Json(std::size_t)>& aRow);
