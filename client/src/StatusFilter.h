// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportClient.h"

#include <optional>

/// Decides which status changes are reported: each change once, even if the endpoint or the bus was
/// replaced in between.
class StatusFilter {
public:
    using StatusChange = CANTransportClient::StatusChange;

    /// @param change as the endpoint reports it. @param peerAnswers whether the peer was heard during the
    /// attempts of a message that was given up.
    /// @return the change to report, if any.
    std::optional<StatusChange> filter(StatusChange change, bool peerAnswers);

private:
    enum class Peer { unknown, connected, silent } peer = Peer::unknown; ///< As last reported.
};
