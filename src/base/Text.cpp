// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"

#include <cstdio>
#include <ostream>

std::string CANTransportThread::printState(int value)
{
    std::string text;
    if (value == RCTS_IDLE) {
        text += "RCTS_IDLE";
    }
    if ((value & RCTS_SENDING) != 0) {
        text += "RCTS_SENDING ";
    }
    if ((value & RCTS_RECEIVING) != 0) {
        text += "RCTS_RECEIVING ";
    }
    if ((value & RCTS_WAIT_FOR_FC) != 0) {
        text += "RCTS_WAIT_FOR_FC ";
    }
    if (value > (RCTS_SENDING | RCTS_RECEIVING | RCTS_WAIT_FOR_FC)) {
        char unknown[32];
        std::snprintf(unknown, sizeof unknown, "UNKNWON (0x%x)", static_cast<unsigned int>(value));
        text += unknown;
    }
    return text;
}

namespace {

const char* nameOf(CANTransportThread::statuschange_t status)
{
    switch (status) {
    case CANTransportThread::CTT_CONNECTED:
        return "CTT_CONNECTED";
    case CANTransportThread::CTT_DISCONNECTED:
        return "CTT_DISCONNECTED";
    case CANTransportThread::CTT_SEND_TIMEOUT:
        return "CTT_SEND_TIMEOUT";
    case CANTransportThread::CTT_RECEIVE_TIMEOUT:
        return "CTT_RECEIVE_TIMEOUT";
    case CANTransportThread::CTT_ACKNOWLEDGED:
        return "CTT_ACKNOWLEDGED";
    }
    return "ERROR";
}

} // namespace

std::ostream& operator<<(std::ostream& stream, CANTransportThread::statuschange_t status)
{
    const auto fill = stream.fill('0');
    stream << nameOf(status);
    stream.fill(fill);
    return stream;
}
