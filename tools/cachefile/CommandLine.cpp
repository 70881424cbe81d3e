#include "tools/cachefile/CommandLine.h"

#include <algorithm>
#include <memory>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/CommonOptions.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Trace.h"

namespace {

// The commands. Each runs while the command line is parsed, and sets the exit code of the tool.

void AddLimits(CLI::App& aCommand, tagLimits& aLimits) {
    AddTime(aCommand, "--duration", aLimits.qwDuration, "End after this time");
    AddSize(aCommand, "--max-bytes", aLimits.qwMaxBytes,
            "End when this many bytes of all streams were read");
    AddSize(aCommand, "--min-free", aLimits.qwMinFree,
            "End before less than this is free on the disk");
    aCommand
        .add_option_function<std::string>(
            "--split",
            [&aLimits](const std::string& strValue) {
                aLimits.qwSplitBytes = ParseSize(strValue).value_or(0);
                aLimits.qwSplitTime = ParseTime(strValue).value_or(0);
            },
            "Continue in the next recording number after this many bytes or this time")
        ->check([](const std::string& strValue) {
            return ParseSize(strValue) || ParseTime(strValue)
                       ? ""
                       : "'" + strValue +
                             "' is neither a size such as 10M nor a time such as 10min";
        })
        ->type_name("SIZE|TIME")
        ->option_text("SIZE|TIME");
}

void AddRecord(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagRecordOptions>();
    CLI::App& aCommand = *aTool.add_subcommand(
        "record", "Record streams from files, pipes or standard input until they end");
    aCommand.add_option("ID", pOptions->aPlan.dwRecordID, "The number of the recording")
        ->transform(NumberValidator())
        ->required()
        ->type_name("");
    AddEach(aCommand, "--stream", pOptions->vecStreams,
            "A stream, as TYPE:ID:KIND=FILE; - is standard input; may be repeated")
        ->required()
        ->type_name("STREAM=FILE");
    aCommand.add_option("--home", pOptions->aPlan.strHome, "The directory of all recordings")
        ->check(PathValidator())
        ->type_name("DIR")
        ->capture_default_str();
    aCommand.add_option("--piece", pOptions->nPiece, "Maximum number of bytes per write")
        ->transform(NumberValidator())
        ->check(CLI::Range(1, 16777216))
        ->type_name("BYTES")
        ->option_text("BYTES [32768]");
    AddInterval(aCommand, "--flush", pOptions->dwFlush,
                "Write gathered bytes after this time; off: when a block is full");
    AddInterval(aCommand, "--sync", pOptions->dwSync,
                "Sync written bytes to the disk after this time, or off");
    AddLimits(aCommand, pOptions->aLimits);
    aCommand
        .add_option("--on-full", pOptions->aPlan.bWaitWhenFull,
                    "What a stream does when the disk is full: stop or wait for space")
        ->transform(
            CLI::CheckedTransformer(std::map<std::string, bool>{{"stop", false}, {"wait", true}}))
        ->type_name("stop|wait")
        ->option_text("stop|wait [stop]");
    aCommand.add_flag("--no-worker", pOptions->aPlan.bSync, "Write without a worker thread");
    AddForce(aCommand, pOptions->bForce);
    AddJson(aCommand, pOptions->bJson);
    AddProgress(aCommand, pOptions->aProgress);
    AddExample(aCommand, "microphone | cachefile record 7 --stream 4:7004:4=-");
    aCommand.callback([pOptions, &nExit] {
        // The recorder writes itself, so that it knows at once which bytes the file has.
        pOptions->aPlan.bSync = pOptions->aPlan.bSync || pOptions->aPlan.bWaitWhenFull;
        pOptions->aPlan.bSyncToDisk = pOptions->dwSync > 0;
        nExit = Record(*pOptions);
    });
}

void AddPlay(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagPlayOptions>();
    CLI::App& aCommand =
        *aTool.add_subcommand("play", "Write the bytes of a stream to standard output");
    AddPath(aCommand, pOptions->strPath, "A recording directory or a container");
    aCommand.add_option("--stream", pOptions->strStream, "The stream, as TYPE:ID:KIND")
        ->required()
        ->type_name("STREAM");
    aCommand.add_option("--offset", pOptions->qwOffset, "Start at this byte of the stream")
        ->transform(NumberValidator())
        ->type_name("BYTES");
    aCommand.add_option("--length", pOptions->qwLength, "Stop after this many bytes")
        ->transform(NumberValidator())
        ->type_name("BYTES");
    aCommand.add_flag("--follow", pOptions->bFollow,
                      "Continue with new bytes until the recorder ends");
    AddExample(aCommand, "cachefile play kvr2/7 --stream 4:7004:4 > voice.raw");
    aCommand.callback([pOptions, &nExit] { nExit = Play(*pOptions); });
}

void AddInfo(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagInfoOptions>();
    CLI::App& aCommand =
        *aTool.add_subcommand("info", "Show the properties and the streams of a recording");
    AddPath(aCommand, pOptions->strPath,
            "A recording directory, a container (-: from standard input), or a directory of "
            "recordings");
    aCommand.add_flag("--watch", pOptions->bWatch,
                      "Show a directory once a second until its recorder ends");
    AddJson(aCommand, pOptions->bJson);
    AddExample(aCommand, "cachefile info kvr2/7");
    aCommand.callback([pOptions, &nExit] { nExit = Info(*pOptions); });
}

void AddList(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagListOptions>();
    CLI::App& aCommand = *aTool.add_subcommand(
        "list", "List the streams of a recording, or the recordings of a directory");
    AddPath(aCommand, pOptions->strPath,
            "A recording directory, a container (-: from standard input), or a directory of "
            "recordings");
    aCommand.add_flag("--names", pOptions->bNames, "Print only the names of the streams");
    AddJson(aCommand, pOptions->bJson);
    AddExample(aCommand, "cachefile list talk.container");
    aCommand.callback([pOptions, &nExit] { nExit = List(*pOptions); });
}

void AddMap(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagMapOptions>();
    CLI::App& aCommand = *aTool.add_subcommand(
        "map", "Draw the layout of a container, on the terminal or as a file");
    AddPath(aCommand, pOptions->strPath, "A container");
    aCommand
        .add_option("-o,--output", pOptions->strOutput,
                    "Write a picture (SVG) or a page (HTML) to this file")
        ->check(PathValidator())
        ->type_name("FILE.svg|html");
    AddForce(aCommand, pOptions->bForce);
    AddJson(aCommand, pOptions->bJson);
    AddExample(aCommand, "cachefile map talk.container -o talk.html");
    aCommand.callback([pOptions, &nExit] { nExit = Map(*pOptions); });
}

void AddMaxFiles(CLI::App& aCommand, std::uint64_t& qwMaxFiles) {
    aCommand.add_option("--max-files", qwMaxFiles, "Make at most this many files, or none")
        ->transform(NumberValidator())
        ->type_name("N")
        ->option_text("N [65536]");
}

void AddExtract(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagExtractOptions>();
    CLI::App& aCommand = *aTool.add_subcommand(
        "extract", "Write the streams of a container to files, even if it is damaged");
    AddPath(aCommand, pOptions->strPath, "A container");
    aCommand.add_option("-o,--output", pOptions->strDirectory, "The directory for the files")
        ->check(PathValidator())
        ->required()
        ->type_name("DIR");
    AddEach(aCommand, "--stream", pOptions->vecStreams,
            "Only this stream, as TYPE:ID:KIND; may be repeated")
        ->type_name("STREAM");
    aCommand.add_flag(
        "--allow-overlap", pOptions->bAllowOverlap,
        "Write streams that share bytes, even if they need more than the container has");
    AddMaxFiles(aCommand, pOptions->qwMaxFiles);
    AddForce(aCommand, pOptions->bForce);
    AddJson(aCommand, pOptions->bJson);
    AddProgress(aCommand, pOptions->aProgress);
    AddExample(aCommand, "cachefile extract talk.container -o talk");
    aCommand.callback([pOptions, &nExit] { nExit = Extract(*pOptions); });
}

void AddPack(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagPackOptions>();
    CLI::App& aCommand =
        *aTool.add_subcommand("pack", "Make a container from the record files of directories");
    aCommand.add_option("DIR", pOptions->vecDirectories, "Recording directories")
        ->check(PathValidator())
        ->required()
        ->type_name("");
    aCommand.add_option("-o,--output", pOptions->strOutput, "The container to write")
        ->check(PathValidator())
        ->required()
        ->type_name("FILE");
    AddEach(aCommand, "--stream", pOptions->vecStreams,
            "Only this stream, as TYPE:ID:KIND; may be repeated")
        ->type_name("STREAM");
    AddEach(aCommand, "--rename", pOptions->vecRenames,
            "Pack a stream, or only that of one directory, under another name; may be repeated")
        ->type_name("[DIR/]STREAM=STREAM");
    aCommand.add_flag("--renumber", pOptions->bRenumber,
                      "Give streams of the same name in several directories the next free ids");
    aCommand.add_flag("--skip-unpackable", pOptions->bSkipUnpackable,
                      "Skip streams that no container can hold");
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
                      "Read the container back and compare it before it gets its name");
    AddForce(aCommand, pOptions->bForce);
    AddJson(aCommand, pOptions->bJson);
    AddProgress(aCommand, pOptions->aProgress);
    AddExample(aCommand, "cachefile pack kvr2/7 -o talk.container --verify");
    aCommand.callback([pOptions, &nExit] { nExit = Pack(*pOptions); });
}

void AddDoctor(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagDoctorOptions>();
    CLI::App& aCommand = *aTool.add_subcommand("doctor", "Report what is wrong with a recording");
    AddPath(aCommand, pOptions->strPath, "A container or a recording directory");
    aCommand.add_flag("--deep", pOptions->bDeep,
                      "Read the files of a directory and compare their checksums");
    aCommand.add_flag("--all", pOptions->bAll,
                      "Show up to 1,000,000 findings, not only the first 100 of each code");
    AddJson(aCommand, pOptions->bJson);
    AddExample(aCommand, "cachefile doctor damaged.container");
    aCommand.callback([pOptions, &nExit] { nExit = Doctor(*pOptions); });
}

CLI::Option* AddKnown(CLI::App& aCommand, std::string& strKnown) {
    return aCommand
        .add_option(
            "--known", strKnown,
            "The file with the known checksums, a recording.json or the output of sums; the "
            "default is the recording.json of the recording")
        ->check(PathValidator())
        ->type_name("FILE");
}

void AddSums(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagSumsOptions>();
    CLI::App& aCommand = *aTool.add_subcommand(
        "sums", "Write the checksums of the streams, or compare them with known ones");
    AddPath(aCommand, pOptions->strPath, "A recording directory or a container");
    aCommand.add_flag("--check", pOptions->bCheck, "Compare with the known checksums");
    AddKnown(aCommand, pOptions->strKnown)->needs("--check");
    aCommand.add_flag(
        "--allow-overlap", pOptions->bAllowOverlap,
        "Read streams that share bytes, even if they have more than the container together");
    AddJson(aCommand, pOptions->bJson);
    AddProgress(aCommand, pOptions->aProgress);
    AddExample(aCommand, "cachefile sums talk.container --check");
    aCommand.callback([pOptions, &nExit] { nExit = Sums(*pOptions); });
}

void AddRecover(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagRecoverOptions>();
    CLI::App& aCommand = *aTool.add_subcommand(
        "recover", "Write what can be recovered of a damaged recording to a new one");
    AddPath(aCommand, pOptions->strPath,
            "A damaged container, or a recording directory that was not closed");
    aCommand
        .add_option("-o,--output", pOptions->strOutput,
                    "The new directory, or with --container the new container")
        ->check(PathValidator())
        ->required()
        ->type_name("PATH");
    aCommand.add_flag("--container", pOptions->bContainer,
                      "Write a container and not a directory of record files");
    AddKnown(aCommand, pOptions->strKnown);
    AddMaxFiles(aCommand, pOptions->qwMaxFiles);
    AddJson(aCommand, pOptions->bJson);
    AddProgress(aCommand, pOptions->aProgress);
    AddExample(aCommand, "cachefile recover damaged.container -o recovered");
    aCommand.callback([pOptions, &nExit] { nExit = Recover(*pOptions); });
}

void AddBench(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagBenchOptions>();
    CLI::App& aCommand = *aTool.add_subcommand(
        "bench", "Compare appending and reading with the library and with plain stdio");
    aCommand.add_option("--size", pOptions->qwMebibytes, "Amount to write and read")
        ->transform(NumberValidator())
        ->check(CLI::Range(1, 4095))
        ->type_name("MIB")
        ->option_text("MIB [64]");
    aCommand.add_option("--piece", pOptions->nPiece, "Bytes per call")
        ->transform(NumberValidator())
        ->check(CLI::Range(1, 16777216))
        ->type_name("BYTES")
        ->option_text("BYTES [4096]");
    aCommand.add_option("--rounds", pOptions->nRounds, "Number of measurements; the best is shown")
        ->transform(NumberValidator())
        ->check(CLI::Range(1, 1000))
        ->type_name("N")
        ->option_text("N [3]");
    aCommand
        .add_option("--dir", pOptions->strDirectory,
                    "The directory to write in; the default is the "
                    "system's directory for temporary files")
        ->check(PathValidator())
        ->type_name("DIR");
    AddJson(aCommand, pOptions->bJson);
    AddExample(aCommand, "cachefile bench --size 256");
    aCommand.callback([pOptions, &nExit] { nExit = Bench(*pOptions); });
}

/// CLI11 splits a word in brackets, which may be the name of a file.
std::string AsOneWord(const std::string& strWord) {
    const bool bBrackets = strWord.size() > 1 && strWord.front() == '[' && strWord.back() == ']';
    return bBrackets ? "./" + strWord : strWord;
}

/// The first word that is not an option.
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
            "-v,--verbose", [] { Trace::Listen(true); }, "Show the trace of the library")
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
    AddSums(aTool, nExit);
    AddRecover(aTool, nExit);
    AddBench(aTool, nExit);
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
    int nExit = Exit_Done;
    const std::string strCommand = FirstCommand(argc, argv);
    if (std::find(argv, argv + argc, std::string("--json")) != argv + argc)
        UseJsonErrors(strCommand);
    CLI::App aTool{"Record, play, show, pack and examine recordings.", "cachefile"};
    AddEverything(aTool, nExit);
    std::vector<std::string> vecWords;
    for (int i = argc - 1; i > 0; --i) vecWords.push_back(AsOneWord(argv[i]));
    if (!vecWords.empty() && vecWords.back() == "help") {  // the words are in reverse order
        vecWords.pop_back();
        vecWords.insert(vecWords.begin(), "--help");
    }
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
