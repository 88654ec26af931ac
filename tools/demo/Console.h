#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <ostream>
#include <streambuf>
#include <string>

/// The demo's own standard output: lines, and a progress bar below them on a terminal. Each line is
/// written under LogUtil::logMutex, so that none is mixed with those of the library. From any thread.
class Console {
public:
    /// While it lives, what goes to `std::cout` is thrown away if `quiet`; what goes to the console
    /// is not. @param withBar whether to draw the bar on a terminal.
    Console(bool quiet, bool withBar);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    void line(const std::string& text);
    /// Draws the bar anew and sends out what is written, both every 100 ms at most.
    void progress(std::size_t done, std::size_t all);
    /// Takes the bar away and sends out what is written.
    void finish();
    /// Standard output does not take what is written.
    bool failed() const { return broken; }

private:
    struct Nowhere : std::streambuf {
        int overflow(int character) override { return traits_type::not_eof(character); }
        std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
    };

    void erase();

    Nowhere nowhere;
    std::streambuf* const standardOutput;
    std::ostream stream;
    const bool barWanted;
    std::string bar; ///< As it stands on the terminal; empty if it does not.
    std::chrono::steady_clock::time_point lastUpdate{};
    std::atomic<bool> broken{false};
};
