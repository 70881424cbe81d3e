#include "platform/CmSystem.h"

// There is nothing to poll: hosts here use the wake-up callable to post themselves a message.

bool CCmWakeDescriptor::Open() { return false; }

void CCmWakeDescriptor::Close() {}

void CCmWakeDescriptor::Signal() {}

void CCmWakeDescriptor::Clear() {}

// Nor are there signals that could interrupt a thread.

CCmSignalShield::CCmSignalShield() = default;

CCmSignalShield::~CCmSignalShield() = default;

// At exit and at unloading this runs under the loader lock, which an ending thread needs too:
// joining there would wait for ever. The host shuts down before.

bool CmRegisterExitHandler(void (* /*pHandler*/)()) { return false; }

bool CmIsForkedChild() { return false; }

bool CmRegisterForkHandlers(void (* /*pBefore*/)(), void (* /*pInParent*/)(),
                            void (* /*pInChild*/)()) {
    return false;
}
