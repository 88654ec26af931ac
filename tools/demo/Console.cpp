#include "demo/Console.h"

#include "velk/LogUtil.h"

#include <iostream>
#include <mutex>

#include <unistd.h>

namespace {

constexpr std::chrono::milliseconds updateInterval{100};
constexpr std::size_t barWidth = 50;

std::string drawBar(std::size_t done, std::size_t all)
{
    const std::size_t filled = all == 0 ? barWidth : done * barWidth / all;
    const std::size_t percent = all == 0 ? 100 : done * 100 / all;
    return '[' + std::string(filled, '#') + std::string(barWidth - filled, '.') + "] " +
           std::to_string(percent) + " %";
}

} // namespace

Console::Console(bool quiet, bool withBar)
    : standardOutput(std::cout.rdbuf()),
      stream(standardOutput),
      hasBar(withBar && isatty(STDOUT_FILENO) == 1)
{
    if (quiet) {
        std::cout.rdbuf(&nowhere);
    }
}

Console::~Console()
{
    finish();
    std::cout.rdbuf(standardOutput);
}

void Console::line(const std::string& text)
{
    const std::lock_guard<std::mutex> lock(LogUtil::logMutex);
    erase();
    stream << text << '\n' << bar;
}

void Console::progress(std::size_t done, std::size_t all)
{
    const auto now = std::chrono::steady_clock::now();
    if (now - lastUpdate < updateInterval) {
        return;
    }
    lastUpdate = now;
    const std::lock_guard<std::mutex> lock(LogUtil::logMutex);
    if (hasBar) {
        erase();
        bar = drawBar(done, all);
        stream << bar;
    }
    stream.flush();
    broken = !stream;
}

void Console::finish()
{
    const std::lock_guard<std::mutex> lock(LogUtil::logMutex);
    erase();
    bar.clear();
    stream.flush();
    broken = !stream;
}

void Console::erase()
{
    if (!bar.empty()) {
        stream << '\r' << std::string(bar.size(), ' ') << '\r';
    }
}
