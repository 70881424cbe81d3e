#include "platform/CmSystem.h"

// There are no descriptors to poll here: hosts post themselves a message from the wake-up callable.

bool CCmWakeDescriptor::Open() { return false; }

void CCmWakeDescriptor::Close() {}

void CCmWakeDescriptor::Signal() {}

void CCmWakeDescriptor::Clear() {}

// There are no signals here that could interrupt a thread.

CCmSignalBlocker::CCmSignalBlocker() = default;

CCmSignalBlocker::~CCmSignalBlocker() = default;

// An exit handler would run under the loader lock, which a thread needs in order to end, so joining
// the worker would wait for ever. The host shuts the library down before that.

bool CmRegisterExitHandler(void (* /*pHandler*/)()) { return false; }

bool CmIsForkedChild() { return false; }

bool CmRegisterForkHandlers(void (* /*pBefore*/)(), void (* /*pInParent*/)(),
                            void (* /*pInChild*/)()) {
    return false;
}
