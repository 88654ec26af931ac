// SPDX-License-Identifier: MIT
#include "common/FrameWords.h"

#include "velk/CANTransportFrame.h"

#include <cstdio>

using namespace CANTransportFrame;

namespace {

std::string codeWords(flowcontrol_t code)
{
    switch (code) {
    case CTP_FC_NOT_READY_TO_RECEIVE:
        return "not ready to receive";
    case CTP_FC_READY_TO_RECEIVE:
        return "ready to receive";
    case CTP_FC_NOT_ACKNOWLEDGE:
        return "not acknowledge";
    case CTP_FC_ACKNOWLEDGE:
        return "acknowledge";
    }
    return "code " + std::to_string(code);
}

} // namespace

std::string frameWords(const CANTransportThread::TPCANMsg& frame)
{
    switch (kindOf(frame.data)) {
    case CTP_SINGLE_FRAME:
        return "SF len " + std::to_string(lowNibbleOf(frame.data));
    case CTP_FIRST_FRAME:
        return "FF len " + std::to_string(announcedLengthOf(frame.data));
    case CTP_CONSECUTIVE_FRAME:
        return "CF " + std::to_string(lowNibbleOf(frame.data));
    case CTP_FLOW_CONTROL:
        return "FC " + codeWords(codeOf(frame.data));
    }
    char text[16];
    std::snprintf(text, sizeof text, "unknown 0x%02x", static_cast<unsigned int>(frame.data[0]));
    return text;
}
