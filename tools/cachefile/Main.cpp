#include <exception>
#include <new>

#include "platform/CmTrace.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Options.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/System.h"

namespace {

/// The library's own lines, for whoever wants to know why.
void ShowTrace() {
    CCmT120Trace::instance()->SetSink(
        [](CmInt32 /*lLevel*/, const char* lpText) { Warn(Printable(lpText)); });
}

void AddEverything(CLI::App& aTool, int& nExit) {
    aTool.require_subcommand(1);
    aTool.fallthrough();
    aTool.set_version_flag("--version", "cachefile " CACHEFILE_VERSION);
    aTool.add_flag_callback("-v,--verbose", ShowTrace, "Show what the library traces")
        ->trigger_on_parse();
    Options::AddExample(aTool, "cachefile info kvr2/7");
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

int Run(int argc, char** argv) {
    int nExit = Exit_Done;
    CLI::App aTool{"Looks after recordings: records, plays, shows, packs and examines them.",
                   "cachefile"};
    AddEverything(aTool, nExit);
    try {
        aTool.parse(argc, argv);
    } catch (const CLI::CallForVersion& aVersion) {
        Print(std::string(aVersion.what()) + "\n");
    } catch (const CLI::CallForHelp&) {
        Print(aTool.help());
    } catch (const CLI::ParseError& aError) {
        throw CFailure(std::string(aError.what()) + " (--help tells what can be said)", Exit_Usage);
    }
    FinishOutput();
    return nExit;
}

}  // namespace

int main(int argc, char** argv) {
    System::Prepare();
    try {
        return Run(argc, argv);
    } catch (const ClosedPipe&) {
        return Exit_Done;
    } catch (const Interrupted&) {
        return Exit_Interrupted;
    } catch (const CFailure& aFailure) {
        Warn(aFailure.what());
        return aFailure.GetExit();
    } catch (const std::bad_alloc&) {
        Warn("out of memory");
    } catch (const std::exception& aError) {
        Warn(aError.what());
    }
    return Exit_Failed;
}
