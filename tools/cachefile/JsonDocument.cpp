#include "tools/cachefile/JsonDocument.h"

#include "tools/cachefile/Output.h"

Json NewDocument(const std::string& strCommand) {
    return {{"schema", "cachefile." + strCommand}, {"version", 1}};
}

namespace {

constexpr int c_nOneLine = -1;

/// Names of files may hold bytes that are no text.
std::string Text(const Json& aJson, int nIndent) {
    return aJson.dump(nIndent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

void PrintDocument(const Json& aDocument) { Print(Text(aDocument, 2) + "\n"); }

void PrintDocument(const Json& aDocument, const std::string& strRows, std::size_t nRows,
                   const std::function<Json(std::size_t)>& aRow) {
    const std::string strBegin = Text(aDocument, 2);
    Print(strBegin.substr(0, strBegin.rfind('\n')) + ",\n  \"" + strRows + "\": [");
    for (std::size_t i = 0; i < nRows; ++i)
        Print((i == 0 ? "\n    " : ",\n    ") + Text(aRow(i), c_nOneLine));
    Print(nRows == 0 ? "]\n}\n" : "\n  ]\n}\n");
}
