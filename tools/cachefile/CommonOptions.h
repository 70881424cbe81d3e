#pragma once

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/CmTypes.h"
#include "tools/cachefile/Progress.h"
#include "tools/cachefile/System.h"
#include "tools/cachefile/Units.h"

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

/// Replaces a text by the number that aParse returns for it.
inline CLI::Validator NumberOf(std::optional<std::uint64_t> (*aParse)(std::string_view),
                               const std::string& strForm) {
    return CLI::Validator(
        [=](std::string& strText) -> std::string {
            const std::optional<std::uint64_t> qwNumber = aParse(strText);
            if (!qwNumber) return "'" + strText + "' is not " + strForm;
            strText = std::to_string(*qwNumber);
            return {};
        },
        "");
}

inline void AddSize(CLI::App& aCommand, const std::string& strName, std::uint64_t& qwBytes,
                    const std::string& strHelp) {
    aCommand.add_option(strName, qwBytes, strHelp)
        ->transform(NumberOf(ParseSize, "a size such as 4096, 64K or 10M"))
        ->type_name("SIZE")
        ->option_text("SIZE");
}

inline void AddTime(CLI::App& aCommand, const std::string& strName, std::uint64_t& qwTime,
                    const std::string& strHelp) {
    aCommand.add_option(strName, qwTime, strHelp)
        ->transform(NumberOf(ParseTime, "a time such as 500ms, 10s, 5min or 2h"))
        ->type_name("TIME")
        ->option_text("TIME");
}

/// A time of one second that can be changed or switched off (0).
inline void AddInterval(CLI::App& aCommand, const std::string& strName, CmUint32& dwTime,
                        const std::string& strHelp) {
    const auto aParse = [](std::string_view strText) {
        return strText == "off" ? std::optional<std::uint64_t>(0) : ParseTime(strText);
    };
    aCommand.add_option(strName, dwTime, strHelp)
        ->transform(NumberOf(aParse, "off or a time such as 500ms or 10s"))
        ->type_name("TIME")
        ->option_text("TIME|off [1s]");
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
    static const std::map<std::string, ProgressMode> s_mapModes = {
        {"auto", ProgressMode::Auto},
        {"always", ProgressMode::Always},
        {"never", ProgressMode::Never},
        {"json", ProgressMode::JsonLines}};
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
