#include "common/FrameWords.h"

#include <cstdio>

namespace {

using Transport = CANTransportThread;

std::string flowControlWords(int code)
{
    switch (code) {
    case Transport::CTP_FC_NOT_READY_TO_RECEIVE:
        return "not ready to receive";
    case Transport::CTP_FC_READY_TO_RECEIVE:
        return "ready to receive";
    case Transport::CTP_FC_NOT_ACKNOWLEDGE:
        return "not acknowledge";
    case Transport::CTP_FC_ACKNOWLEDGE:
        return "acknowledge";
    default:
        return "code " + std::to_string(code);
    }
}

std::string unknownWords(unsigned int head)
{
    char text[16];
    std::snprintf(text, sizeof text, "unknown 0x%02x", head);
    return text;
}

} // namespace

std::string frameWords(const Transport::TPCANMsg& frame)
{
    const int low = frame.data[0] & 0x0F;
    switch (frame.data[0] >> 4) {
    case Transport::CTP_SINGLE_FRAME:
        return "SF len " + std::to_string(low);
    case Transport::CTP_FIRST_FRAME:
        return "FF len " + std::to_string(low << 8 | frame.data[1]);
    case Transport::CTP_CONSECUTIVE_FRAME:
        return "CF " + std::to_string(low);
    case Transport::CTP_FLOW_CONTROL:
        return "FC " + flowControlWords(low);
    default:
        return unknownWords(frame.data[0]);
    }
}
