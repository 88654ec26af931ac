#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <ostream>
#include <streambuf>
#include <string>

/// The demo's own standard output: lines, and on a terminal a progress bar below them. Each line is written
/// under LogUtil::logMutex, so that it does not mix with lines of the library. All operations may be called
/// from any thread.
class Console {
public:
    /// @param quiet drop the output of `std::cout` while the console exists; the console's own output is
    /// still written. @param withBar whether to draw the bar on a terminal.
    Console(bool quiet, bool withBar);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Prints a line.
    void line(const std::string& text);
    /// Redraws the bar and flushes the output, at most every 100 ms.
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
    std::string bar; ///< As shown on the terminal; empty if it is not shown.
    std::chrono::steady_clock::time_point lastUpdate{};
    std::atomic<bool> broken{false};
};
