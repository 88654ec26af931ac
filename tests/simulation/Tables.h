#pragma once

#include "simulation/Cells.h"

#include "support/Endpoint.h"

#include <stdexcept>
#include <string>

using Frame = CANTransportThread::TPCANMsg;
using Snapshot = CANTransportThreadAccess::Snapshot;

/// A broken promise ends the run.
struct BrokenPromise : std::runtime_error {
    using std::runtime_error::runtime_error;
};
inline void require(bool kept, const char* promise)
{
    if (!kept) {
        throw BrokenPromise(promise);
    }
}
inline void require(bool kept, const std::string& where, const char* promise)
{
    if (!kept) {
        throw BrokenPromise(where + promise);
    }
}

/// What one event did to an endpoint, as far as it can be seen.
struct Effect {
    Snapshot before{};
    Snapshot after{};
    std::vector<Frame> sent;
    std::size_t delivered = 0;
    bool clientGone = false; ///< The client's pipe takes nothing.
    bool proxyGone = false;  ///< Nor does the proxy: no frame can be seen.
};

/// The tables of the protocol: each row that an event falls into is counted, and its effect compared.
namespace Tables {

void checkFrame(const Frame& frame, const Effect& effect, Cells& cells);
void checkRequest(const Effect& effect, Cells& cells);
void checkExpiry(const Effect& effect, Cells& cells);
void checkClear(bool includeCurrent, const Effect& effect, Cells& cells);

} // namespace Tables
