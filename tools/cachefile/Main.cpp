#include <exception>
#include <new>

#include "tools/cachefile/CommandLine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/System.h"

namespace {

/// Writes what was printed before the failure. A second failure is not reported.
void FinishOutputQuietly() try { FinishOutput(); } catch (const std::exception&) {
} catch (const Interrupted&) {
}

}  // namespace

int main(int argc, char** argv) {
    System::Prepare();
    try {
        return RunCommandLine(argc, argv);
    } catch (const Interrupted&) {
        ReportError("interrupted", Exit_Interrupted);
        return Exit_Interrupted;
    } catch (const CFailure& aFailure) {
        FinishOutputQuietly();
        ReportError(aFailure.what(), aFailure.GetExit());
        return aFailure.GetExit();
    } catch (const std::bad_alloc&) {
        ReportError("out of memory", Exit_Failed);
    } catch (const std::exception& aError) {
        ReportError(aError.what(), Exit_Failed);
    }
    return Exit_Failed;
}
