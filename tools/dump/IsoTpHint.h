// SPDX-License-Identifier: MIT
#pragma once

#include "dump/SentFrame.h"

#include <map>
#include <optional>

/// Recognises ISO-TP, whose frames look alike: its first consecutive frame has number 1, and code 0 lets a
/// message continue.
class IsoTpHint {
public:
    /// Takes the next frame. @return whether it belongs to ISO-TP; true only once.
    bool take(const SentFrame& sent);

private:
    struct Bus {
        std::optional<Sender> first; ///< Sent a first frame, and no consecutive frame yet.
        bool ready = false;          ///< Since that frame, a peer has sent code 1,
        bool mayGoOn = false;        ///< and after it code 0.
        std::optional<Sender> stop;  ///< Sent code 0 in the last frame.
    };
    std::map<std::uint32_t, Bus> buses; ///< By interface.
    bool found = false;
};
