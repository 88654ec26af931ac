// SPDX-License-Identifier: MIT
#include "times/EnginePair.h"

#include "velk/CANTransportFrame.h"

#include "common/Records.h"

#include <cstring>

#include <fcntl.h>
#include <sys/select.h>

using namespace Records;
using CANTransportFrame::consecutiveFrameBytes;

double cpuSeconds(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

EnginePair::~EnginePair()
{
    for (const auto& endpoint : endpoints) {
        endpoint->stop();
    }
}

std::unique_ptr<EnginePair> endpoints()
{
    auto pair = std::make_unique<EnginePair>();
    auto sender = std::make_unique<CANTransportThread>();
    auto receiver = std::make_unique<CANTransportThread>();
    int unused = -1;
    int answers = -1;
    sender->open(unused, pair->requests);
    receiver->open(pair->messages, answers);
    sender->setConnection(answers);
    receiver->setConnection(pair->requests);
    std::function<void(CANTransportThread::statuschange_t, unsigned short)> delegate =
        [to = pair.get()](CANTransportThread::statuschange_t status, unsigned short) {
            if (status != CANTransportThread::CTT_CONNECTED) {
                to->failed = status != CANTransportThread::CTT_ACKNOWLEDGED;
                sem_post(&to->acknowledged);
            }
        };
    sender->setDelegate(delegate);
    pair->endpoints.push_back(std::move(sender));
    pair->endpoints.push_back(std::move(receiver));
    for (const auto& endpoint : pair->endpoints) {
        endpoint->start();
    }
    return pair;
}

namespace {

struct Bare {
    std::size_t size = 0;
    sem_t* acknowledged = nullptr;
    Pipe toSender;
    Pipe toReceiver;
    Pipe toClient;
};

constexpr std::size_t pipeSize = 65536;

/// One wakeup. @return the number of bytes read.
std::size_t awaitInput(const Pipe& pipe, unsigned char* room, bool timed)
{
    const int descriptor = pipe.ends[0];
    fd_set set;
    FD_ZERO(&set);
    FD_SET(descriptor, &set);
    timeval left{1, 0};
    ::select(descriptor + 1, &set, nullptr, nullptr, timed ? &left : nullptr);
    std::size_t size = 0;
    ssize_t count = 0;
    while ((count = ::read(descriptor, room + size, pipeSize)) > 0) {
        size += static_cast<std::size_t>(count);
    }
    return size;
}

void sendForever(Bare& bare)
{
    Bytes records = frames(bare.size);
    unsigned char room[2 * pipeSize];
    unsigned char answer[2 * pipeSize];
    for (;;) {
        awaitInput(bare.toSender, room, false);
        const unsigned char* payload = room + messageHeader;
        for (std::size_t at = 0; at < records.size();
             at += frameSize, payload += consecutiveFrameBytes) {
            std::memcpy(&records[at + frameData + 1], payload, consecutiveFrameBytes);
            put(bare.toReceiver.ends[1], &records[at], frameSize);
            if (at == 0 && records.size() > frameSize) {
                awaitInput(bare.toSender, answer, true); // ready
            }
        }
        awaitInput(bare.toSender, room, true); // the acknowledgement
        sem_post(bare.acknowledged);
    }
}

void receiveForever(Bare& bare)
{
    const std::size_t expected = frameCount(bare.size) * frameSize;
    Bytes message = request(bare.size);
    message.resize(message.size() + consecutiveFrameBytes);
    unsigned char room[2 * pipeSize];
    for (;;) {
        std::size_t received = awaitInput(bare.toReceiver, room, false);
        if (expected > frameSize) {
            put(bare.toSender.ends[1], ready);
        }
        while (received < expected) {
            received += awaitInput(bare.toReceiver, room + received, true);
        }
        unsigned char* payload = &message[messageHeader];
        for (std::size_t at = 0; at < expected; at += frameSize, payload += consecutiveFrameBytes) {
            std::memcpy(payload, &room[at + frameData + 1], consecutiveFrameBytes);
        }
        put(bare.toClient.ends[1], message.data(), messageHeader + bare.size);
        put(bare.toSender.ends[1], acknowledge);
    }
}

} // namespace

std::unique_ptr<EnginePair> bareEngines(std::size_t size)
{
    auto pair = std::make_unique<EnginePair>();
    const std::shared_ptr<Bare> bare(new Bare{size, &pair->acknowledged, {}, {}, {}});
    ::fcntl(bare->toSender.ends[0], F_SETFL, O_NONBLOCK);
    ::fcntl(bare->toReceiver.ends[0], F_SETFL, O_NONBLOCK);
    pair->requests = bare->toSender.ends[1];
    pair->messages = bare->toClient.ends[0];
    std::thread([bare] { sendForever(*bare); }).detach();
    std::thread([bare] { receiveForever(*bare); }).detach();
    return pair;
}

double carry(const std::vector<std::unique_ptr<EnginePair>>& pairs, std::size_t size, long rounds)
{
    const Bytes record = request(size);
    const double before = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
    for (long round = 0; round < rounds; ++round) {
        for (const auto& pair : pairs) {
            put(pair->requests, record);
        }
        for (const auto& pair : pairs) {
            sem_wait(&pair->acknowledged);
            if (pair->failed) {
                Program::fail("a message was given up: the machine is too busy");
            }
            take(pair->messages, record.size());
        }
    }
    const double messages = static_cast<double>(rounds) * static_cast<double>(pairs.size());
    return (cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - before) / messages;
}
