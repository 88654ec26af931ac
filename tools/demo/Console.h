#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <ostream>
#include <streambuf>
#include <string>

/// The demo's own standard output: lines, and a progress bar below them on a terminal. Each line is
/// written under LogUtil::logMutex, so that it does not mix with those of the library. All operations may
/// be called from any thread.
class Console {
public:
    /// While it exists and `quiet` is set, the output of `std::cout` is dropped; that of the console is
    /// not. @param withBar whether to draw the bar on a terminal.
    Console(bool quiet, bool withBar);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Prints a line.
    void line(const std::string& text);
    /// Draws the bar again and flushes the output, at most every 100 ms.
    void progress(std::size_t done, std::size_t all);
    /// Removes the bar and flushes the output.
    void finish();
    /// @return whether standard output could not be written.
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
    const bool hasBar;
    std::string bar; ///< As shown on the terminal; empty if it is not.
    std::chrono::steady_clock::time_point lastUpdate{};
    std::atomic<bool> broken{false};
};
