#include "tools/cachefile/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <map>
#include <memory>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/System.h"
#include "tools/cachefile/Trace.h"

namespace {

/// A path that the library can be given.
const CLI::Validator& PathValidator() {
    static const CLI::Validator s_aValidator(
        [](std::string& str) { return System::PathFault(str); }, "");
    return s_aValidator;
}

/// A number in decimal; the package alone would take signs, octal ones and what is too large.
const CLI::Validator& NumberValidator() {
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

// Options that several commands have, with the same words everywhere.

void AddPath(CLI::App& aCommand, std::string& strPath, const std::string& strHelp) {
    aCommand.add_option("PATH", strPath, strHelp)
        ->required()
        ->check(PathValidator())
        ->type_name("");
}

void AddJson(CLI::App& aCommand, bool& bJson) {
    aCommand.add_flag("--json", bJson, "Write one JSON document instead of text");
}

void AddForce(CLI::App& aCommand, bool& bForce) {
    aCommand.add_flag("--force", bForce, "Overwrite what already exists");
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

/// A repeatable option with one value each.
CLI::Option* AddEach(CLI::App& aCommand, const std::string& strName,
                     std::vector<std::string>& vecValues, const std::string& strHelp) {
    return aCommand.add_option(strName, vecValues, strHelp)->allow_extra_args(false);
}

/// What stands at the end of the help.
void AddExample(CLI::App& aCommand, const std::string& strExample) {
    aCommand.footer("Example:\n  " + strExample);
}

// The commands. Each runs while the words are parsed and sets how the tool ends.

void AddRecord(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagRecordOptions>();
    CLI::App& aCommand = *aTool.add_subcommand(
        "record", "Record streams from files, pipes or standard input, until they end");
    aCommand.add_option("ID", pOptions->aPlan.dwRecordID, "The number of the recording")
        ->transform(NumberValidator())
        ->required()
        ->type_name("");
    AddEach(aCommand, "--stream", pOptions->vecStreams,
            "A stream, as TYPE:ID:KIND=FILE, where FILE - is standard input; may be "
            "repeated")
        ->required()
        ->type_name("STREAM=FILE");
    aCommand.add_option("--home", pOptions->aPlan.strHome, "Where recordings lie")
        ->check(PathValidator())
        ->type_name("DIR")
        ->capture_default_str();
    aCommand.add_option("--piece", pOptions->nPiece, "Most bytes handed over at once")
        ->transform(NumberValidator())
        ->check(CLI::Range(1, 16777216))
        ->type_name("BYTES")
        ->option_text("BYTES [32768]");
    aCommand.add_flag("--sync", pOptions->aPlan.bSync,
                      "Write without a worker thread; appends are gathered");
    AddForce(aCommand, pOptions->bForce);
    AddJson(aCommand, pOptions->bJson);
    AddProgress(aCommand, pOptions->aProgress);
    AddExample(aCommand, "microphone | cachefile record 7 --stream 4:7004:4=-");
    aCommand.callback([pOptions, &nExit] { nExit = Record(*pOptions); });
}

void AddPlay(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagPlayOptions>();
    CLI::App& aCommand =
        *aTool.add_subcommand("play", "Write the bytes of a stream to standard output");
    AddPath(aCommand, pOptions->strPath, "A recording directory or a container");
    aCommand.add_option("--stream", pOptions->strStream, "The stream, as TYPE:ID:KIND")
        ->required()
        ->type_name("STREAM");
    aCommand.add_option("--offset", pOptions->qwOffset, "Begin so many bytes into the stream")
        ->transform(NumberValidator())
        ->type_name("BYTES");
    aCommand.add_option("--length", pOptions->qwLength, "Stop after so many bytes")
        ->transform(NumberValidator())
        ->type_name("BYTES");
    AddExample(aCommand, "cachefile play kvr2/7 --stream 4:7004:4 > voice.raw");
    aCommand.callback([pOptions, &nExit] { nExit = Play(*pOptions); });
}

void AddInfo(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagInfoOptions>();
    CLI::App& aCommand =
        *aTool.add_subcommand("info", "Show what a recording is and what it holds");
    AddPath(aCommand, pOptions->strPath, "A recording directory or a container");
    AddJson(aCommand, pOptions->bJson);
    AddExample(aCommand, "cachefile info kvr2/7");
    aCommand.callback([pOptions, &nExit] { nExit = Info(*pOptions); });
}

void AddList(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagListOptions>();
    CLI::App& aCommand = *aTool.add_subcommand("list", "List the streams of a recording");
    AddPath(aCommand, pOptions->strPath, "A recording directory or a container");
    AddJson(aCommand, pOptions->bJson);
    AddExample(aCommand, "cachefile list talk.container");
    aCommand.callback([pOptions, &nExit] { nExit = List(*pOptions); });
}

void AddMap(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagMapOptions>();
    CLI::App& aCommand = *aTool.add_subcommand(
        "map", "Draw what lies where in a container, on the terminal or as SVG");
    AddPath(aCommand, pOptions->strPath, "A container");
    aCommand.add_option("-o,--output", pOptions->strOutput, "Draw into this SVG file instead")
        ->check(PathValidator())
        ->type_name("FILE.svg");
    AddForce(aCommand, pOptions->bForce);
    AddJson(aCommand, pOptions->bJson);
    AddExample(aCommand, "cachefile map talk.container -o talk.svg");
    aCommand.callback([pOptions, &nExit] { nExit = Map(*pOptions); });
}

void AddExtract(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagExtractOptions>();
    CLI::App& aCommand = *aTool.add_subcommand(
        "extract", "Write the streams of a container into files, also of a damaged one");
    AddPath(aCommand, pOptions->strPath, "A container");
    aCommand.add_option("-o,--output", pOptions->strDirectory, "The directory for the files")
        ->check(PathValidator())
        ->required()
        ->type_name("DIR");
    AddEach(aCommand, "--stream", pOptions->vecStreams,
            "Only this stream, as TYPE:ID:KIND; may be repeated")
        ->type_name("STREAM");
    aCommand.add_flag("--allow-overlap", pOptions->bAllowOverlap,
                      "Write also streams that share bytes and need more than the container has");
    AddForce(aCommand, pOptions->bForce);
    AddJson(aCommand, pOptions->bJson);
    AddProgress(aCommand, pOptions->aProgress);
    AddExample(aCommand, "cachefile extract talk.container -o talk");
    aCommand.callback([pOptions, &nExit] { nExit = Extract(*pOptions); });
}

void AddPack(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagPackOptions>();
    CLI::App& aCommand =
        *aTool.add_subcommand("pack", "Make a container of the record files of directories");
    aCommand.add_option("DIR", pOptions->vecDirectories, "Recording directories")
        ->check(PathValidator())
        ->required()
        ->type_name("");
    aCommand.add_option("-o,--output", pOptions->strOutput, "The container to be made")
        ->check(PathValidator())
        ->required()
        ->type_name("FILE");
    AddEach(aCommand, "--stream", pOptions->vecStreams,
            "Only this stream, as TYPE:ID:KIND; may be repeated")
        ->type_name("STREAM");
    aCommand.add_flag("--skip-unpackable", pOptions->bSkipUnpackable,
                      "Leave out streams that no container can hold");
    aCommand.add_option("--index", pOptions->dwIndexType, "Index type: 0 packed, 1 chained")
        ->transform(NumberValidator())
        ->check(CLI::IsMember(std::vector<CmUint32>{Index_Packed, Index_Chained}))
        ->type_name("0|1")
        ->option_text("0|1");
    aCommand
        .add_option("--version", pOptions->dwFileVersion,
                    "Set the file version in the conf stream's header")
        ->transform(NumberValidator())
        ->type_name("N");
    aCommand
        .add_option("--timestamp", pOptions->dwCBTimeStamp,
                    "Set the CB time stamp in the conf stream's header")
        ->transform(NumberValidator())
        ->type_name("N");
    aCommand.add_flag("--verify", pOptions->bVerify,
                      "Read the container back and compare before it gets its name");
    AddForce(aCommand, pOptions->bForce);
    AddJson(aCommand, pOptions->bJson);
    AddProgress(aCommand, pOptions->aProgress);
    AddExample(aCommand, "cachefile pack kvr2/7 -o talk.container --verify");
    aCommand.callback([pOptions, &nExit] { nExit = Pack(*pOptions); });
}

void AddDoctor(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagDoctorOptions>();
    CLI::App& aCommand = *aTool.add_subcommand("doctor", "Report what is wrong with a container");
    AddPath(aCommand, pOptions->strPath, "A container");
    aCommand.add_flag("--all", pOptions->bAll,
                      "Show every finding, not only the first 100 of the same code");
    AddJson(aCommand, pOptions->bJson);
    AddExample(aCommand, "cachefile doctor damaged.container");
    aCommand.callback([pOptions, &nExit] { nExit = Doctor(*pOptions); });
}

void AddBench(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagBenchOptions>();
    CLI::App& aCommand = *aTool.add_subcommand(
        "bench", "Append and read with the library and with plain stdio, side by side");
    aCommand.add_option("--size", pOptions->qwMebibytes, "How much to write and read")
        ->transform(NumberValidator())
        ->check(CLI::Range(1, 4095))
        ->type_name("MIB")
        ->option_text("MIB [64]");
    aCommand.add_option("--piece", pOptions->nPiece, "Bytes at once")
        ->transform(NumberValidator())
        ->check(CLI::Range(1, 16777216))
        ->type_name("BYTES")
        ->option_text("BYTES [4096]");
    aCommand.add_option("--rounds", pOptions->nRounds, "Measure so often and take the best")
        ->transform(NumberValidator())
        ->check(CLI::Range(1, 1000))
        ->type_name("N")
        ->option_text("N [3]");
    aCommand
        .add_option("--dir", pOptions->strDirectory,
                    "Where to write, instead of the system's "
                    "place for temporary files")
        ->check(PathValidator())
        ->type_name("DIR");
    AddJson(aCommand, pOptions->bJson);
    AddExample(aCommand, "cachefile bench --size 256");
    aCommand.callback([pOptions, &nExit] { nExit = Bench(*pOptions); });
}

/// The package takes a word in brackets apart, which may be the name of a file.
std::string AsOneWord(const std::string& strWord) {
    const bool bBrackets = strWord.size() > 1 && strWord.front() == '[' && strWord.back() == ']';
    return bBrackets ? "./" + strWord : strWord;
}

/// The first word that is no option.
std::string FirstCommand(int argc, char** argv) {
    const auto aEnd = argv + argc;
    const auto it = std::find_if(argv + std::min(argc, 1), aEnd,
                                 [](const char* lpWord) { return *lpWord && *lpWord != '-'; });
    return it == aEnd ? "" : *it;
}

void AddEverything(CLI::App& aTool, int& nExit) {
    aTool.require_subcommand(1);
    aTool.fallthrough();
    aTool.set_version_flag("--version", "cachefile " CACHEFILE_VERSION);
    aTool
        .add_flag_callback(
            "-v,--verbose", [] { Trace::Listen(true); }, "Show what the library traces")
        ->trigger_on_parse();
    AddExample(aTool, "cachefile info kvr2/7");
    AddRecord(aTool, nExit);
    AddPlay(aTool, nExit);
    AddInfo(aTool, nExit);
    AddList(aTool, nExit);
    AddMap(aTool, nExit);
    AddExtract(aTool, nExit);
    AddPack(aTool, nExit);
    AddDoctor(aTool, nExit);
    AddBench(aTool, nExit);
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
    int nExit = Exit_Done;
    const std::string strCommand = FirstCommand(argc, argv);
    if (std::find(argv, argv + argc, std::string("--json")) != argv + argc)
        UseJsonErrors(strCommand);
    CLI::App aTool{"Records, plays, shows, packs and examines recordings.", "cachefile"};
    AddEverything(aTool, nExit);
    std::vector<std::string> vecWords;
    for (int i = argc - 1; i > 0; --i) vecWords.push_back(AsOneWord(argv[i]));
    try {
        aTool.parse(std::move(vecWords));
    } catch (const CLI::CallForVersion& aVersion) {
        Print(std::string(aVersion.what()) + "\n");
    } catch (const CLI::CallForHelp&) {
        Print(aTool.help());
    } catch (const CLI::ParseError& aError) {
        const bool bUnknown = aTool.get_subcommands().empty() && !strCommand.empty();
        const std::string strText =
            bUnknown ? "unknown command '" + Printable(strCommand) + "'" : aError.what();
        throw CFailure(strText + " (see `--help`)", Exit_Usage);
    }
    FinishOutput();
    return nExit;
}
