#include "tools/cachefile/JsonDocument.h"

#include "tools/cachefile/Output.h"

Json NewDocument(const std::string& strCommand) {
    return {{"schema", "cachefile." + strCommand}, {"version", 1}};
}

void PrintDocument(const Json& aDocument) {
    // Names of files may hold bytes that are no text.
    Print(aDocument.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}
