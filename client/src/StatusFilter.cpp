// SPDX-License-Identifier: MIT
#include "StatusFilter.h"

#include <utility>

std::optional<StatusFilter::StatusChange> StatusFilter::filter(StatusChange change,
                                                               bool peerAnswers)
{
    switch (change.status) {
    case CANTransportThread::CTT_CONNECTED:
        if (std::exchange(peer, Peer::connected) == Peer::connected) {
            return std::nullopt;
        }
        return change;
    case CANTransportThread::CTT_DISCONNECTED:
    case CANTransportThread::CTT_SEND_TIMEOUT:
        if (peerAnswers) { // it refused the message, but it is still there
            return std::nullopt;
        }
        switch (std::exchange(peer, Peer::silent)) {
        case Peer::unknown:
            return StatusChange{CANTransportThread::CTT_SEND_TIMEOUT, change.value};
        case Peer::connected:
            return StatusChange{CANTransportThread::CTT_DISCONNECTED, change.value};
        case Peer::silent:
            return std::nullopt;
        }
        return std::nullopt;
    case CANTransportThread::CTT_RECEIVE_TIMEOUT:
    case CANTransportThread::CTT_ACKNOWLEDGED:
        return change;
    }
    return std::nullopt;
}
