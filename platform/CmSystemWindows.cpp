#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include "platform/CmSystem.h"

// Windows has no descriptors to poll. The wake-up callable of a host posts a message to its thread.

bool CCmWakeDescriptor::Open() { return false; }

void CCmWakeDescriptor::Close() {}

void CCmWakeDescriptor::Signal() {}

void CCmWakeDescriptor::Clear() {}

std::int64_t CmCoarseTime() { return static_cast<std::int64_t>(::GetTickCount64()) * 1'000'000; }

std::int64_t CmCoarseStep() { return 16'000'000; }  // 64 steps a second

// Windows has no signals that interrupt a thread.

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
