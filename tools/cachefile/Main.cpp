#include <exception>
#include <new>

#include "tools/cachefile/CommandLine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/System.h"

namespace {

/// What came before a failure is put out; whatever stops that too is the smaller trouble.
void FinishOutputQuietly() try { FinishOutput(); } catch (const std::exception&) {
} catch (const Interrupted&) {
}

}  // namespace

int main(int argc, char** argv) {
    System::Prepare();
    try {
        return RunCommandLine(argc, argv);
    } catch (const Interrupted&) {
        Warn("interrupted");
        return Exit_Interrupted;
    } catch (const CFailure& aFailure) {
        FinishOutputQuietly();
        Warn(aFailure.what());
        return aFailure.GetExit();
    } catch (const std::bad_alloc&) {
        Warn("out of memory");
    } catch (const std::exception& aError) {
        Warn(aError.what());
    }
    return Exit_Failed;
}
