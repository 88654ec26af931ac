// SPDX-License-Identifier: MIT
#include "dump/LogInput.h"

#include "dump/BusInput.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace {

constexpr std::size_t longestLine = 1024; ///< Longer than any of candump.

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), "cannot read " + what);
}

} // namespace

LogInput::LogInput(const std::string& fileName)
    : name(fileName == "-" ? "standard input" : "'" + fileName + "'")
{
    if (fileName != "-") {
        // The open of a named pipe must not wait for its writer: no signal would end it.
        file = aboveStandardStreams(
            Descriptor(open(fileName.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)));
        if (file.get() == -1) {
            if (errno == ENOENT) {
                throw std::runtime_error("got " + name +
                                         ", expected a file, -, can0, unix:PATH or exec:COMMAND");
            }
            fail(name);
        }
    }
}

bool LogInput::read(const Take& take)
{
    char bytes[65536];
    const ssize_t count = ::read(descriptor(), bytes, sizeof bytes);
    if (count == -1 && errno != EAGAIN && errno != EINTR) {
        fail(name);
    }
    const char* const end = bytes + std::max<ssize_t>(count, 0);
    for (const char* begin = bytes; begin != end;) {
        const char* const newline = std::find(begin, end, '\n');
        line.append(begin, std::min<std::size_t>(static_cast<std::size_t>(newline - begin),
                                                 longestLine + 1 - line.size()));
        begin = newline;
        if (newline != end) {
            takeLine(take);
            ++begin;
        }
    }
    if (count == 0 && !line.empty()) {
        takeLine(take);
    }
    return count != 0;
}

void LogInput::takeLine(const Take& take)
{
    ++lines;
    const auto logged =
        line.size() <= longestLine ? parseCandumpLine(line) : std::optional<LoggedFrame>();
    line.clear();
    if (logged) {
        take(*logged);
    } else {
        ++skipped;
    }
}

std::string LogInput::remark() const
{
    return skipped == 0
               ? ""
               : name + ": skipped " + std::to_string(skipped) + " of " + std::to_string(lines) +
                     (lines == 1 ? " line" : " lines") + ", without a classic CAN data frame";
}

std::unique_ptr<FrameInput> openInput(const std::string& name)
{
    auto bus = openBus(name);
    return bus ? std::move(bus) : std::make_unique<LogInput>(name);
}
