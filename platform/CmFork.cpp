#include "platform/CmFork.h"

#include "platform/CmSystem.h"
#include "platform/CmThreadObjects.h"
#include "platform/CmTrace.h"

// The locks are taken in the order in which the library nests them: the caller state, its thread.
// No other two of them are ever held together.

struct CCmForkHandlers {
    static void BeforeFork() {
        CCmT120Trace::instance()->m_sink.BeforeFork();
        CCmCallerState::Instance().BeforeFork();
    }

    static void AfterForkInParent() {
        CCmCallerState::Instance().AfterForkInParent();
        CCmT120Trace::instance()->m_sink.AfterForkInParent();
    }

    static void AfterForkInChild() {
        CCmCallerState::Instance().AfterForkInChild();
        CCmT120Trace::instance()->m_sink.AfterForkInChild();
    }
};

void CmWatchForks() {
    static const bool s_bWatched =
        CmRegisterForkHandlers(CCmForkHandlers::BeforeFork, CCmForkHandlers::AfterForkInParent,
                               CCmForkHandlers::AfterForkInChild);
    (void)s_bWatched;  // without memory for it, forks are as safe as the system makes them
}
