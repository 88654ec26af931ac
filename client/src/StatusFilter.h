#pragma once

#include "velk/CANTransportClient.h"

#include <optional>

/// What the status handler hears: each change once, whatever becomes of endpoints and buses in between.
class StatusFilter {
public:
    using StatusChange = CANTransportClient::StatusChange;

    /// @param change as the endpoint reports it. @param peerAnswers whether the peer was heard during the
    /// attempts of a message that was given up.
    /// @return what the handler hears of it.
    std::optional<StatusChange> filter(StatusChange change, bool peerAnswers);

private:
    enum class Peer {
        unknown,
        connected,
        silent
    } peer = Peer::unknown; ///< As the handler knows it.
};
