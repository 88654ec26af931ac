#pragma once

#include "simulation/Tables.h"
#include "support/Promise.h"

#include <deque>
#include <string>
#include <vector>

/// Where a frame on the bus comes from.
struct Origin {
    static constexpr int stranger = -1;

    int message = stranger; ///< The message that it carries a part of, or answers.
    std::size_t index = 0;  ///< Of the message's frames.
    bool copy = false;      ///< The second of a frame that the bus has doubled.
};

/// What reception makes of the frames it accepts, told by where they come from.
struct Incoming {
    int message = Origin::stranger;
    std::size_t next = 0; ///< Index of the frame that has to come next.
    bool copy = false;
    /// A frame has been accepted that fits by its number, but is not the next one of this message:
    /// a stranger's, or one behind a loss of 16. The format has nothing to tell it by.
    bool mixed = false;
    Bytes bytes;            ///< What has been accepted.
    std::size_t length = 0; ///< As announced.

    void accept(const Frame& frame, const Origin& origin, const Snapshot& before);
};

/// The messages of one direction, from the request to its end.
class Ledger {
public:
    Ledger(unsigned short canID, Cells& cellCounts) : id(canID), cells(cellCounts) {}

    /// A new message; its number stands in its first bytes, as far as they go.
    int submit(std::size_t size);
    const Bytes& bytesOf(int message) const { return messages.at(at(message)).bytes; }

    void taken(int message) { queue.push_back(message); }
    void refused(int message) { messages.at(at(message)).ended = true; }
    Origin left(const Frame& frame);
    /// Frames have been written to a proxy that took none.
    void lostSight()
    {
        unseen = true;
        nextIndex = 0;
    }
    void acknowledged(int value, const Origin& answer);
    void droppedTo(std::size_t left);
    void arrived(const Bytes& payload, const Incoming& incoming);
    std::size_t queued() const { return queue.size(); }
    bool ended(int message) const { return messages.at(at(message)).ended; }
    bool acknowledged(int message) const { return messages.at(at(message)).acknowledged; }
    bool delivered(int message) const { return messages.at(at(message)).arrivals > 0; }
    /// What has to hold when everything has come to rest.
    void checkEnd() const;

private:
    struct Message {
        Bytes bytes;
        std::vector<Frame> frames;
        bool ended = false;
        bool acknowledged = false; ///< By an answer to this message.
        std::size_t arrivals = 0;
    };
    static std::size_t at(int message) { return static_cast<std::size_t>(message); }

    const unsigned short id;
    Cells& cells;
    std::vector<Message> messages;
    std::deque<int> queue; ///< As the endpoint's queue has to be.
    std::size_t nextIndex = 0;
    bool unseen = false;
    int lastArrived = 0;
};
