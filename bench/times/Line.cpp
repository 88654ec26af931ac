#include "times/Line.h"

#include "common/Records.h"

#include <cstring>

#include <fcntl.h>
#include <sys/select.h>

using namespace Records;

double cpuSeconds(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

Line::~Line()
{
    for (const auto& endpoint : endpoints) {
        endpoint->stop();
    }
}

std::unique_ptr<Line> endpoints()
{
    auto line = std::make_unique<Line>();
    auto sender = std::make_unique<CANTransportThread>();
    auto receiver = std::make_unique<CANTransportThread>();
    int unused = -1;
    int answers = -1;
    sender->open(unused, line->requests);
    receiver->open(line->messages, answers);
    sender->setConnection(answers);
    receiver->setConnection(line->requests);
    std::function<void(CANTransportThread::statuschange_t, unsigned short)> delegate =
        [to = line.get()](CANTransportThread::statuschange_t status, unsigned short) {
            if (status != CANTransportThread::CTT_CONNECTED) {
                to->failed = status != CANTransportThread::CTT_ACKNOWLEDGED;
                sem_post(&to->acknowledged);
            }
        };
    sender->setDelegate(delegate);
    line->endpoints.push_back(std::move(sender));
    line->endpoints.push_back(std::move(receiver));
    for (const auto& endpoint : line->endpoints) {
        endpoint->start();
    }
    return line;
}

namespace {

struct Bare {
    std::size_t size = 0;
    sem_t* acknowledged = nullptr;
    Pipe toSender;
    Pipe toReceiver;
    Pipe toClient;
};

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
    while ((count = ::read(descriptor, room + size, 65536)) > 0) {
        size += static_cast<std::size_t>(count);
    }
    return size;
}

void sendForEver(Bare& bare)
{
    Bytes records = frames(bare.size);
    unsigned char room[2 * 65536];
    unsigned char answer[2 * 65536];
    for (;;) {
        awaitInput(bare.toSender, room, false);
        const unsigned char* payload = room + messageHeader;
        for (std::size_t at = 0; at < records.size(); at += frameSize, payload += 7) {
            std::memcpy(&records[at + frameData + 1], payload, 7);
            put(bare.toReceiver.ends[1], &records[at], frameSize);
            if (at == 0 && records.size() > frameSize) {
                awaitInput(bare.toSender, answer, true); // ready
            }
        }
        awaitInput(bare.toSender, room, true); // the acknowledgement
        sem_post(bare.acknowledged);
    }
}

void receiveForEver(Bare& bare)
{
    const std::size_t expected = frameCount(bare.size) * frameSize;
    Bytes message = request(bare.size);
    message.resize(message.size() + 7);
    unsigned char room[2 * 65536];
    for (;;) {
        std::size_t received = awaitInput(bare.toReceiver, room, false);
        if (expected > frameSize) {
            put(bare.toSender.ends[1], ready);
        }
        while (received < expected) {
            received += awaitInput(bare.toReceiver, room + received, true);
        }
        unsigned char* payload = &message[messageHeader];
        for (std::size_t at = 0; at < expected; at += frameSize, payload += 7) {
            std::memcpy(payload, &room[at + frameData + 1], 7);
        }
        put(bare.toClient.ends[1], message.data(), messageHeader + bare.size);
        put(bare.toSender.ends[1], acknowledge);
    }
}

} // namespace

std::unique_ptr<Line> bareEngines(std::size_t size)
{
    auto line = std::make_unique<Line>();
    const std::shared_ptr<Bare> bare(new Bare{size, &line->acknowledged, {}, {}, {}});
    ::fcntl(bare->toSender.ends[0], F_SETFL, O_NONBLOCK);
    ::fcntl(bare->toReceiver.ends[0], F_SETFL, O_NONBLOCK);
    line->requests = bare->toSender.ends[1];
    line->messages = bare->toClient.ends[0];
    std::thread([bare] { sendForEver(*bare); }).detach();
    std::thread([bare] { receiveForEver(*bare); }).detach();
    return line;
}

double carry(const std::vector<std::unique_ptr<Line>>& lines, std::size_t size, long rounds)
{
    const Bytes record = request(size);
    const double before = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
    for (long round = 0; round < rounds; ++round) {
        for (const auto& line : lines) {
            put(line->requests, record);
        }
        for (const auto& line : lines) {
            sem_wait(&line->acknowledged);
            if (line->failed) {
                Program::fail("a message was given up: the machine is too busy");
            }
            take(line->messages, record.size());
        }
    }
    const double messages = static_cast<double>(rounds) * static_cast<double>(lines.size());
    return (cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - before) / messages;
}
