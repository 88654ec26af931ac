// SPDX-License-Identifier: MIT
#include "dump/IsoTpHint.h"

using namespace CANTransportFrame;

bool IsoTpHint::take(const SentFrame& sent)
{
    if (found) {
        return false;
    }
    Bus& bus = buses[interfaceOf(sent.sender)];
    const auto kind = kindOf(sent.frame.data);
    if (kind == CTP_CONSECUTIVE_FRAME) {
        const bool starts = bus.first == sent.sender;
        const bool stopped = bus.stop && *bus.stop != sent.sender;
        // A peer that is ready expects number 0; if 1 follows, a frame was lost.
        found = starts ? lowNibbleOf(sent.frame.data) == 1 && (!bus.ready || bus.mayGoOn)
                       : stopped && !bus.ready;
    }
    bus.stop.reset();
    if (kind == CTP_FIRST_FRAME) {
        bus.first = sent.sender;
        bus.ready = false;
        bus.mayGoOn = false;
    } else if (kind == CTP_CONSECUTIVE_FRAME) {
        bus.first = bus.first == sent.sender ? std::nullopt : bus.first;
    } else if (isAnswer(sent)) {
        const auto code = codeOf(sent.frame.data);
        bus.ready = bus.ready || code == CTP_FC_READY_TO_RECEIVE;
        bus.mayGoOn = bus.ready && code == CTP_FC_NOT_READY_TO_RECEIVE;
        if (code == CTP_FC_NOT_READY_TO_RECEIVE) {
            bus.stop = sent.sender;
        }
    }
    return found;
}
