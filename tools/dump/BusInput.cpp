// SPDX-License-Identifier: MIT
#include "dump/BusInput.h"

#include "velk/VelkException.h"

#include "common/FrameRecord.h"
#include "common/InputEnd.h"

#include <cerrno>
#include <system_error>

#include <net/if.h>
#include <sys/un.h>

namespace {

[[noreturn]] void fail(const std::string& what, int error)
{
    throw std::system_error(error, std::generic_category(), what);
}

std::chrono::microseconds now()
{
    return std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
}

/// A bus has sockets of packets, a proxy sockets of a stream.
Descriptor connectTo(const std::string& path)
{
    sockaddr_un address{AF_UNIX, {}};
    if (path.size() >= sizeof address.sun_path) {
        fail("unix:" + path, ENAMETOOLONG);
    }
    path.copy(address.sun_path, path.size());
    for (const int type : {SOCK_SEQPACKET, SOCK_STREAM}) {
        Descriptor socket =
            aboveStandardStreams(Descriptor(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0)));
        const timeval limit{1, 0}; // no signal ends this wait
        setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        if (connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
            return socket;
        }
        if (errno != EPROTOTYPE) {
            break;
        }
    }
    fail("unix:" + path, errno == EAGAIN ? ETIMEDOUT : errno);
}

/// @return whether the text starts with the prefix, which is then removed.
bool strip(const std::string& prefix, std::string& text)
{
    const bool has = text.compare(0, prefix.size(), prefix) == 0;
    text.erase(0, has ? prefix.size() : 0);
    return has;
}

} // namespace

bool InterfaceInput::read(const Take& take)
{
    constexpr std::size_t most = 256;
    frames.clear();
    const CANSocket::Result result = socket.receive(frames, most);
    for (const can_frame& frame : frames) {
        take({socket.name(), CANSocket::fromKernel(frame), now()});
    }
    if (result == CANSocket::Result::down || result == CANSocket::Result::failed) {
        fail(socket.name() + ": the bus is lost", socket.error());
    }
    return true;
}

std::string InterfaceInput::remark() const
{
    return socket.missed() == 0
               ? ""
               : socket.name() +
                     ": frames missed, the kernel had no room: " + std::to_string(socket.missed());
}

RecordInput::RecordInput(std::string busName, std::string interface, Descriptor connected)
    : socket(std::move(connected)),
      name(std::move(busName)),
      logged{std::move(interface), {}, {}},
      records(socket.get(), nullptr)
{
}

bool RecordInput::read(const Take& take)
{
    if (records.read() == -1 && errno != EAGAIN && errno != EINTR) {
        fail(name + ": the bus is lost", errno);
    }
    logged.time = now();
    try {
        takeWaiting(take);
    } catch (const VelkException&) { // bytes that are no record
        ++skipped;
    }
    if (records.atEnd() && isEndOfInput(socket.get())) {
        throw std::runtime_error(name + ": the bus is lost");
    }
    return true;
}

void RecordInput::takeWaiting(const Take& take)
{
    for (TraceRecord::View record; records.getNextRecord(record);) {
        if (const auto frame = FrameRecord::dataFrameIn(record)) {
            logged.frame = *frame;
            take(logged);
        } else {
            ++skipped;
        }
    }
}

std::string RecordInput::remark() const
{
    return skipped == 0
               ? ""
               : name + ": records without a classic CAN data frame: " + std::to_string(skipped);
}

std::unique_ptr<FrameInput> openBus(const std::string& name)
{
    std::string rest = name;
    if (strip("unix:", rest)) {
        return std::make_unique<RecordInput>(name, "unix", connectTo(rest));
    }
    if (strip("exec:", rest)) {
        return std::make_unique<CommandInput>(rest);
    }
    if (if_nametoindex(name.c_str()) != 0) {
        return std::make_unique<InterfaceInput>(name);
    }
    return nullptr;
}
