// SPDX-License-Identifier: MIT
#pragma once

#include "dump/MessageTracker.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// A ladder diagram as SVG: a vertical line for each id, an arrow for each frame, time to scale. A bar beside
/// the sender shows each attempt to send a message and its outcome.
class LadderPicture {
public:
    /// @param to empty if it is unknown. @param fault empty if there is none.
    void add(const SentFrame& sent, const std::string& from, const std::string& to,
             const std::string& fault);
    /// Ends the attempt that the last first or single frame of `from` has started.
    /// @param last number of the frame that ends it.
    void end(const std::string& from, Outcome outcome, std::uint64_t last);
    /// @param timed whether the time stamps can be used; without them, all distances are equal.
    std::string svg(bool timed) const;
    /// @return how many frames the picture has no room for.
    std::size_t leftOut() const { return framesLeftOut; }

private:
    struct Arrow {
        SentFrame sent;
        std::size_t from;
        std::size_t to; ///< The same as `from` if it is unknown.
        std::string fault;
        double y = 0;
    };
    struct Bar {
        std::size_t line;
        std::uint64_t first;
        std::uint64_t last;
        Outcome outcome;
    };

    std::size_t lineOf(const std::string& name);
    double place(std::vector<Arrow>& sorted, bool timed, double& msPerPixel) const;
    std::string bars(const std::vector<Arrow>& sorted) const;
    std::string arrow(const Arrow& arrow, double labelY) const;
    double labelX() const;

    std::vector<std::string> lines; ///< Names, from left to right.
    std::vector<Arrow> arrows;
    std::vector<Bar> allBars;
    std::map<std::size_t, std::uint64_t> started; ///< Number of the first frame, by line.
    std::size_t framesLeftOut = 0;
};
