// SPDX-License-Identifier: MIT
#include "dump/Colours.h"

using namespace CANTransportFrame;

namespace {

constexpr const char* red = "\033[31m";
constexpr const char* green = "\033[32m";
constexpr const char* cyan = "\033[36m";
constexpr const char* boldRed = "\033[1;31m";
constexpr const char* boldGreen = "\033[1;32m";
constexpr const char* boldYellow = "\033[1;33m";

} // namespace

const char* colourOf(const CANTransportThread::TPCANMsg& frame)
{
    switch (kindOf(frame.data)) {
    case CTP_SINGLE_FRAME:
    case CTP_FIRST_FRAME:
        return startsMessage(frame.data) ? cyan : red;
    case CTP_CONSECUTIVE_FRAME:
        return "";
    case CTP_FLOW_CONTROL:
        switch (codeOf(frame.data)) {
        case CTP_FC_READY_TO_RECEIVE:
        case CTP_FC_ACKNOWLEDGE:
            return green;
        case CTP_FC_NOT_READY_TO_RECEIVE:
        case CTP_FC_NOT_ACKNOWLEDGE:
            break;
        }
        break;
    }
    return red;
}

const char* colourOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::acknowledged:
        return boldGreen;
    case Outcome::refused:
        return boldRed;
    case Outcome::restarted:
    case Outcome::incomplete:
        break;
    }
    return boldYellow;
}
