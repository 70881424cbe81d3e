#include "tools/cachefile/Options.h"

#include <map>

namespace Options {

void AddPath(CLI::App& aCommand, std::string& strPath, const std::string& strHelp) {
    aCommand.add_option("PATH", strPath, strHelp)->required()->type_name("");
}

void AddJson(CLI::App& aCommand, bool& bJson) {
    aCommand.add_flag("--json", bJson, "Write one JSON document instead of text");
}

void AddForce(CLI::App& aCommand, bool& bForce) {
    aCommand.add_flag("--force", bForce, "Write over what is there already");
}

void AddProgress(CLI::App& aCommand, ProgressMode& aMode) {
    static const std::map<std::string, ProgressMode> s_mapModes = {{"auto", ProgressMode::Auto},
                                                                   {"always", ProgressMode::Always},
                                                                   {"never", ProgressMode::Never},
                                                                   {"json", ProgressMode::Json}};
    aCommand
        .add_option("--progress", aMode,
                    "Show progress on standard error: auto (on a terminal), always, never or json")
        ->transform(CLI::CheckedTransformer(s_mapModes))
        ->type_name("MODE")
        ->option_text("MODE");
}

CLI::Option* AddEach(CLI::App& aCommand, const std::string& strName,
                     std::vector<std::string>& vecValues, const std::string& strHelp) {
    return aCommand.add_option(strName, vecValues, strHelp)->allow_extra_args(false);
}

void AddExample(CLI::App& aCommand, const std::string& strExample) {
    aCommand.footer("Example:\n  " + strExample);
}

}  // namespace Options
