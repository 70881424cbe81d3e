#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

using Json = nlohmann::ordered_json;

/// Makes ReportError write JSON from now on. The command may be empty.
void UseJsonErrors(const std::string& strCommand);

/// Writes the reason of a failure to standard error: a line of text, or with --json an object.
void ReportError(const std::string& strText, int nExit);

/// The beginning of the one document that a command writes with --json. Fields keep their names and
/// meanings while the version is the same; new fields may be added.
Json NewDocument(const std::string& strCommand);

void PrintDocument(const Json& aDocument);

/// The same with an array of nRows rows as the last field, one row per line. aRow returns the row
/// of an index. It is called when the row is written, since there may be millions.
void PrintDocument(const Json& aDocument, const std::string& strRows, std::size_t nRows,
                   const std::function<Json(std::size_t)>& aRow);
