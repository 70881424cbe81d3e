#include "tools/cachefile/JsonDocument.h"

#include <cstdio>

#include "tools/cachefile/Output.h"

namespace {

constexpr int c_nOneLine = -1;

bool s_bJsonErrors = false;

std::string& FailingCommand() {
    static std::string s_strCommand;
    return s_strCommand;
}

/// File names may have bytes that are not UTF-8.
std::string Text(const Json& aJson, int nIndent) {
    return aJson.dump(nIndent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

void UseJsonErrors(const std::string& strCommand) {
    FailingCommand() = strCommand;
    s_bJsonErrors = true;
}

void ReportError(const std::string& strText, int nExit) {
    if (!s_bJsonErrors) return Warn(strText);
    Json aError = NewDocument("error");
    aError["command"] = FailingCommand().empty() ? Json(nullptr) : Json(FailingCommand());
    aError["exit"] = nExit;
    aError["message"] = strText;
    std::fprintf(stderr, "%s\n", Text(aError, c_nOneLine).c_str());
}

Json NewDocument(const std::string& strCommand) {
    return {{"schema", "cachefile." + strCommand}, {"version", 1}};
}

void PrintDocument(const Json& aDocument) { Print(Text(aDocument, 2) + "\n"); }

void PrintDocument(const Json& aDocument, const std::string& strRows, std::size_t nRows,
                   const std::function<Json(std::size_t)>& aRow) {
    const std::string strBegin = Text(aDocument, 2);
    Print(strBegin.substr(0, strBegin.rfind('\n')) + ",\n  \"" + strRows + "\": [");
    for (std::size_t i = 0; i < nRows; ++i)
        Print((i == 0 ? "\n    " : ",\n    ") + Text(aRow(i), c_nOneLine));
    Print(nRows == 0 ? "]\n}\n" : "\n  ]\n}\n");
}
