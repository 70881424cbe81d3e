#pragma once

#include <memory>

/// Calls Destroy, which gives back the host's reference on a handler.
struct CHandlerDestroyer {
    template <class HandlerT>
    void operator()(HandlerT* pHandler) const {
        pHandler->Destroy();
    }
};

/// Owns the host's reference on a write handler or a play handler, and calls Destroy when it goes
/// out of scope:
///
///     CHandlerPtr<CWriteFileHandler> pHandler(manager.CreateWriteFileHandler(12, 0));
///
/// It is null where the manager returned null. Belongs to the thread that drives the handler, since
/// that is where Destroy is called. It has to end before what the handler's Initialize was given
/// (the sink). reset() destroys the handler earlier; do that before you read
/// CCacheFileManager::GetLostBytes, because Destroy writes what is still gathered.
template <class HandlerT>
using CHandlerPtr = std::unique_ptr<HandlerT, CHandlerDestroyer>;
