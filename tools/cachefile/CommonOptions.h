#pragma once

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/cachefile/Progress.h"
#include "tools/cachefile/System.h"

// Values and options that several commands share. Only CommandLine.cpp includes this header, since
// CLI11 takes long to compile.

/// Accepts the paths that the library accepts.
inline const CLI::Validator& PathValidator() {
    static const CLI::Validator s_aValidator(
        [](std::string& str) { return System::PathFault(str); }, "");
    return s_aValidator;
}

/// Accepts decimal numbers. CLI11 alone would also accept signs, octal numbers and overflow.
inline const CLI::Validator& NumberValidator() {
    static const CLI::Validator s_aValidator(
        [](std::string& strText) -> std::string {
            std::uint64_t qwNumber = 0;
            const char* const lpEnd = strText.data() + strText.size();
            const auto [lpRead, aError] = std::from_chars(strText.data(), lpEnd, qwNumber);
            if (aError != std::errc() || lpRead != lpEnd)
                return "'" + strText + "' is not a decimal number, or is too large";
            strText = std::to_string(qwNumber);
            return {};
        },
        "");
    return s_aValidator;
}

inline void AddPath(CLI::App& aCommand, std::string& strPath, const std::string& strHelp) {
    aCommand.add_option("PATH", strPath, strHelp)
        ->required()
        ->check(PathValidator())
        ->type_name("");
}

inline void AddJson(CLI::App& aCommand, bool& bJson) {
    aCommand.add_flag("--json", bJson, "Write one JSON document instead of text");
}

inline void AddForce(CLI::App& aCommand, bool& bForce) {
    aCommand.add_flag("--force", bForce, "Overwrite what already exists");
}

inline void AddProgress(CLI::App& aCommand, ProgressMode& aMode) {
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

/// Adds an option that may be repeated and takes one value each time.
inline CLI::Option* AddEach(CLI::App& aCommand, const std::string& strName,
                            std::vector<std::string>& vecValues, const std::string& strHelp) {
    return aCommand.add_option(strName, vecValues, strHelp)->allow_extra_args(false);
}

/// Sets the end of the help text.
inline void AddExample(CLI::App& aCommand, const std::string& strExample) {
    aCommand.footer("Example:\n  " + strExample);
}
