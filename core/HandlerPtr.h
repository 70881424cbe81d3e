#pragma once

#include <memory>

/// Calls Destroy, which releases the host's reference to a handler.
struct CHandlerDestroyer {
    template <class HandlerT>
    void operator()(HandlerT* pHandler) const {
        pHandler->Destroy();
    }
};

/// Owns the host's reference to a write handler or a play handler, and calls Destroy when it goes
/// out of scope:
///
///     CHandlerPtr<CWriteFileHandler> pHandler(manager.CreateWriteFileHandler(12, 0));
///
/// It is null if the manager returned null. Use it only on the thread that drives the handler,
/// because it calls Destroy on its own thread. It must be destroyed before the sink that was passed
/// to Initialize. reset() destroys the handler earlier: call it before you read
/// CCacheFileManager::GetLostBytes, because Destroy writes the gathered bytes.
template <class HandlerT>
using CHandlerPtr = std::unique_ptr<HandlerT, CHandlerDestroyer>;
