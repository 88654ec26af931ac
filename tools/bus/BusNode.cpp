#include "bus/BusNode.h"

#include "velk/VelkException.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const char* what)
{
    const int error = errno;
    VelkException exception;
    exception << "VirtualBus: " << what << ": " << std::strerror(error);
    throw exception;
}

/// The same pipe with an open file description of its own: O_NONBLOCK set on a duplicate would
/// take hold of the client's descriptor as well.
Descriptor openAnew(int descriptor)
{
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    Descriptor own(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    if (own.get() == -1) {
        fail("cannot open the endpoint's input");
    }
    return own;
}

} // namespace

BusNode::Pipe::Pipe()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == -1) {
        fail("no pipe for an endpoint's frames");
    }
    readEnd = Descriptor(ends[0]);
    writeEnd = Descriptor(ends[1]);
    if (fcntl(readEnd.get(), F_SETFL, O_NONBLOCK) == -1) {
        fail("no pipe for an endpoint's frames");
    }
}

BusNode::BusNode(int inputDescriptor, AcceptanceFilter acceptance, std::size_t queueLength)
    : filter(acceptance),
      frameLimit(queueLength),
      input(openAnew(inputDescriptor)),
      source(proxy.readEnd.get(), nullptr)
{
}

void BusNode::read()
{
    source.read();
    exhausted = false;
}

std::optional<CANFrame> BusNode::nextFrame(std::uint64_t& unreadable)
{
    while (!exhausted) {
        try {
            const auto message = source.getNextMessage();
            if (message == nullptr) {
                exhausted = true;
            } else if (const auto frame = frameOf(*message)) {
                return frame;
            } else {
                ++unreadable;
            }
        } catch (const VelkException&) {
            ++unreadable;
        }
    }
    return std::nullopt;
}

bool BusNode::deliver(const std::vector<unsigned char>& record)
{
    if (counts.silent) {
        return false;
    }
    if (queuedFrames >= frameLimit) {
        flush();
    }
    if (queuedFrames >= frameLimit) {
        ++counts.overflowDrops;
        return false;
    }
    enqueue(record, true);
    return true;
}

void BusNode::request(const std::vector<unsigned char>& record)
{
    if (!counts.silent) {
        enqueue(record, false);
    }
}

void BusNode::enqueue(const std::vector<unsigned char>& record, bool isFrame)
{
    bytes.insert(bytes.end(), record.begin(), record.end());
    records.push_back({record.size(), isFrame});
    queuedFrames += isFrame ? 1 : 0;
}

void BusNode::flush()
{
    while (!bytes.empty()) {
        const ssize_t written = write(input.get(), bytes.data(), bytes.size());
        if (written >= 0) {
            accountFor(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR) {
            fallSilent();
        }
    }
}

void BusNode::accountFor(std::size_t written)
{
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(written));
    while (!records.empty() && records.front().left <= written) {
        written -= records.front().left;
        const bool isFrame = records.front().isFrame;
        queuedFrames -= isFrame ? 1 : 0;
        ++(isFrame ? counts.delivered : counts.requests);
        records.pop_front();
    }
    if (!records.empty()) {
        records.front().left -= written;
    }
}

void BusNode::fallSilent()
{
    counts.silent = true;
    bytes.clear();
    records.clear();
    queuedFrames = 0;
    input.reset();
}
