#include "platform/CmFork.h"

#include "platform/CmSystem.h"
#include "platform/CmThreadObjects.h"
#include "platform/CmTraceLine.h"

// The locks are taken in the order in which the library nests them: the caller state, its thread.
// No other two of them are ever held together.

namespace {

void BeforeFork() {
    TraceBeforeFork();
    CCmCallerState::Instance().BeforeFork();
}

void AfterForkInParent() {
    CCmCallerState::Instance().AfterForkInParent();
    TraceAfterForkInParent();
}

void AfterForkInChild() {
    CCmCallerState::Instance().AfterForkInChild();
    TraceAfterForkInChild();
}

}  // namespace

void CmWatchForks() {
    static const bool s_bWatched =
        CmRegisterForkHandlers(BeforeFork, AfterForkInParent, AfterForkInChild);
    (void)s_bWatched;  // without memory for it, forks are as safe as the system makes them
}
