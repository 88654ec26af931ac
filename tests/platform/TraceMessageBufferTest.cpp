// SPDX-License-Identifier: MIT
#include "velk/TraceMessageBuffer.h"

#include "velk/Millisleep.h"
#include "velk/Pipe.h"
#include "velk/VelkException.h"

#include "support/Endpoint.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <future>
#include <mutex>
#include <utility>
#include <vector>

#include <unistd.h>

namespace {

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// A buffer at the end of a pipe.
class TraceMessageBufferTest : public testing::Test {
protected:
    /// Puts the bytes in, as many at a time as the pipe holds, and takes what there is: "message" for
    /// each one, and "dropped N" for an exception.
    std::string take(const Bytes& bytes)
    {
        std::string events;
        for (std::size_t at = 0; at < bytes.size(); at += 60000) {
            const std::size_t count = std::min<std::size_t>(60000, bytes.size() - at);
            pipe.write({bytes.data() + at, bytes.data() + at + count});
            EXPECT_EQ(buffer.read(), 0);
            try {
                while (const auto message = buffer.getNextMessage()) {
                    events += "message ";
                    given = given + bytesOf(*message);
                }
            } catch (const VelkException& error) {
                events += error.str().substr(0, error.str().find(" bytes"));
            }
        }
        return events;
    }

    Endpoint pipe;
    TraceMessageBuffer buffer{Access::input(pipe)[0], nullptr};
    Bytes given; ///< The messages, as they serialise.
};

Bytes first(std::size_t count, const Bytes& bytes) { return {bytes.data(), bytes.data() + count}; }

Bytes with(std::size_t position, int value, Bytes bytes)
{
    bytes.at(position) = static_cast<unsigned char>(value);
    return bytes;
}

const Bytes data = pattern(64);
const Bytes frame = bytesOf(CANExtTraceMessage(0x1FFFFFFF, data.data(), 8));
const Bytes other = bytesOf(CANTraceMessage(0x7FF, data.data(), 64));
const Bytes request = bytesOf(CANTransportTraceMessage(pattern(300)));
const Bytes unknown = with(4, 20, bytesOf(MessageBase(2))) + Bytes(4, 0xEE);
const Bytes eightFrames = frame + frame + frame + frame + frame + frame + frame + frame;
const Bytes tunnel =
    with(20, 7, bytesOf(CANTransportTraceMessage(frame + frame))); // a reserved byte

Bytes recordWithAllFields()
{
    CANAltTraceMessage message(0x99AABBCC, data.data(), 2, 0x1122334455667788);
    message.reservedByte1 = 0x11;
    message.reservedWord1 = 0x22334455;
    message.reservedByte2 = 0x66;
    message.reservedWord2 = 0x778899AA;
    return bytesOf(message);
}

} // namespace

TEST_F(TraceMessageBufferTest, theSerialFormIsTheDocumentedOne)
{
    EXPECT_EQ(recordWithAllFields(),
              (Bytes{0xA3, 0xC5, 0x12, 0x80, 33,   0,    0,    0,    0x88, 0x77, 0x66,
                     0x55, 0x44, 0x33, 0x22, 0x11, 0x11, 0x55, 0x44, 0x33, 0x22, 0x66,
                     0xAA, 0x99, 0x88, 0x77, 2,    0xCC, 0xBB, 0xAA, 0x99, 1,    8}));
    CANTransportTraceMessage message({0x41, 0x42}, 0x123);
    message.reservedWord = 7;
    Bytes bytes{9};
    message.createByteArray(bytes, false, true);
    EXPECT_EQ(bytes, (Bytes{9, 0x23, 1, 0, 0, 7, 0, 0, 0, 0x41, 0x42}));
    CANTraceMessage tooLong(0x7FF, data.data(), 64);
    tooLong.length = 65;
    EXPECT_EQ(bytesOf(tooLong), other);
}

TEST_F(TraceMessageBufferTest, everyRecordSurvivesBeingCutAnywhere)
{
    const Bytes empty = bytesOf(CANTransportTraceMessage({}));
    const Bytes stream = frame + other + recordWithAllFields() + unknown + empty + tunnel;
    for (std::size_t at = 0; at <= stream.size(); ++at) {
        given.clear();
        const std::string events = take(first(at, stream));
        ASSERT_EQ(events + take({stream.data() + at, stream.data() + stream.size()}),
                  "message message message message message message ")
            << "cut at " << at;
        ASSERT_EQ(given, stream) << "cut at " << at;
    }
}

TEST_F(TraceMessageBufferTest, dropsExactlyWhatIsNoRecord)
{
    const std::pair<Bytes, const char*> rows[] = {
        {Bytes{1} + frame + Bytes{2, 3} + other + Bytes{4}, "message message dropped 4"},
        {Bytes{0xA3} + frame, "message dropped 1"}, // half a marker
        {Bytes{0xA3, 0xC4}, "dropped 2"},
        {tunnel + Bytes{1}, "message dropped 1"},
        {with(4, 15, unknown) + frame, "message dropped 20"},   // below the header
        {with(6, 0x11, unknown) + frame, "message dropped 20"}, // above 1 MiB
        {with(4, 96, frame) + frame, "message dropped 39"},     // above 64 data bytes
        {with(26, 9, frame) + other, "message dropped 39"},     // a data byte beyond the record
        {with(4, 23, with(5, 0, request)) + frame, "message dropped 324"}, // below the body
        {first(9, frame) + other + frame, "message message dropped 9"},
        {first(36, frame) + other + frame, "message message dropped 36"},
        {first(20, request) + eightFrames, "message message message message message message "
                                           "message message dropped 20"},
        {first(250, request) + frame + frame, "message message dropped 250"},
    };
    for (const auto& [bytes, events] : rows) {
        EXPECT_EQ(take(bytes), events) << "row " << testing::PrintToString(bytes);
    }
}

TEST_F(TraceMessageBufferTest, waitsForTheRestOfWhatACutRecordTookForItsEnd)
{
    EXPECT_EQ(take(frame + first(36, frame) + first(60, other)), "message dropped 36");
    EXPECT_EQ(take({other.data() + 60, other.data() + other.size()}), "message ");
    EXPECT_EQ(given, frame + other);
}

TEST_F(TraceMessageBufferTest, skipsARequestOfMoreThanAMegabyteWithTheRecordsInIt)
{
    Bytes records;
    while (records.size() < 1 << 20) {
        records = records + eightFrames;
    }
    const Bytes longest = bytesOf(CANTransportTraceMessage(first((1 << 20) - 24, records)));
    const Bytes longer = bytesOf(CANTransportTraceMessage(first((1 << 20) - 23, records)));
    EXPECT_EQ(take(longest + longer + frame + longer),
              "message skipped 1048577message skipped 1048577");
    EXPECT_EQ(given, longest + frame);
    EXPECT_TRUE(buffer.empty());
    pipe.write(first(16, longer));
    EXPECT_EQ(buffer.read() + buffer.read(), 0);
    EXPECT_FALSE(buffer.empty()) << "there is something to report";
}

TEST_F(TraceMessageBufferTest, readsAgainOnlyWhenNoCompleteRecordWaits)
{
    pipe.write(frame);
    EXPECT_EQ(buffer.read(), 0);
    close(std::exchange(Access::input(pipe)[1], -1));
    EXPECT_EQ(buffer.read(), 0);
    EXPECT_FALSE(buffer.atEnd());
    TraceRecord::View record;
    ASSERT_TRUE(buffer.getNextRecord(record));
    EXPECT_EQ(Bytes(record.bytes, record.bytes + record.size), frame);
    EXPECT_EQ(buffer.read(), 0);
    EXPECT_TRUE(buffer.atEnd());
    EXPECT_FALSE(buffer.getNextRecord(record));
    close(std::exchange(Access::input(pipe)[0], -1));
    EXPECT_EQ(buffer.read(), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(TraceMessageBufferTest, takesItsMutexInEachCall)
{
    std::mutex mutex;
    TraceMessageBuffer shared(Access::input(pipe)[0], &mutex);
    TraceRecord::View record;
    CANTransportThread::TPCANMsg taken{};
    for (const std::function<void()>& call : std::vector<std::function<void()>>{
             [&] { shared.read(); }, [&] { shared.atEnd(); }, [&] { shared.empty(); },
             [&] { shared.getNextMessage(); }, [&] { shared.getNextRecord(record); },
             [&] { shared.getNextFrame(taken.canID, taken.len, taken.data); }}) {
        pipe.write(frame);
        std::unique_lock<std::mutex> lock(mutex);
        std::atomic<bool> isFree{false};
        auto calling = std::async(std::launch::async, [&] {
            call();
            return isFree.load();
        });
        millisleep(2); // without the lock, the call returns meanwhile
        isFree = true;
        lock.unlock();
        EXPECT_TRUE(calling.get());
    }
}
