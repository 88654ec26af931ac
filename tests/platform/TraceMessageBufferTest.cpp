#include "velk/TraceMessageBuffer.h"

#include "velk/VelkException.h"

#include "support/Endpoint.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace {

const unsigned char canData[8] = {1, 2, 3, 4, 5, 6, 7, 8};

/// A pipe with a buffer on its end. What is given out is noted as the bytes it serialises to.
class TraceMessageBufferTest : public testing::Test {
protected:
    TraceMessageBufferTest() : opened(pipe2(ends, O_NONBLOCK)), buffer(ends[0], nullptr)
    {
        EXPECT_EQ(opened, 0);
    }
    ~TraceMessageBufferTest() override
    {
        close(ends[0]);
        close(ends[1]);
    }

    void write(const Bytes& bytes) const
    {
        ASSERT_EQ(::write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    /// Takes what there is. An exception is noted as "dropped N".
    std::string takeAll()
    {
        std::string events;
        for (;;) {
            EXPECT_EQ(buffer.read(), 0);
            try {
                const auto message = buffer.getNextMessage();
                if (!message) {
                    return events;
                }
                events += "message ";
                given.push_back(bytesOf(*message));
            } catch (const VelkException& error) {
                const std::string text = error.what();
                events += text.substr(0, text.find(" bytes")) + " ";
            }
        }
    }

    int ends[2] = {-1, -1};
    const int opened;
    TraceMessageBuffer buffer;
    std::vector<Bytes> given;
};

Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

Bytes firstOf(const Bytes& bytes, std::size_t count)
{
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

Bytes with(Bytes bytes, std::size_t position, int value)
{
    bytes.at(position) = static_cast<unsigned char>(value);
    return bytes;
}

const Bytes frameRecord = bytesOf(CANExtTraceMessage(0x1FFFFFFF, canData, 8, 0x1122334455667788));
const Bytes otherRecord = bytesOf(CANTraceMessage(0x7FF, canData, 3));

Bytes recordOfUnknownId()
{
    MessageBase message(2);
    message.rawBytes = Bytes(20, 0xEE); // a header and 4 bytes
    return bytesOf(message);
}

} // namespace

TEST_F(TraceMessageBufferTest, theSerialFormIsTheDocumentedOne)
{
    const Bytes expected = {0xA3, 0xC5, 11,   0,    39,   0, 0, 0, 0x88, 0x77, 0x66, 0x55, 0x44,
                            0x33, 0x22, 0x11, 0,    0,    0, 0, 0, 0,    0,    0,    0,    0,
                            8,    0xFF, 0xFF, 0xFF, 0x1F, 1, 2, 3, 4,    5,    6,    7,    8};
    EXPECT_EQ(frameRecord, expected);
    Bytes message{9};
    CANTransportTraceMessage({0x41, 0x42}, 0x123).createByteArray(message, false, true);
    EXPECT_EQ(message, (Bytes{9, 0x23, 1, 0, 0, 0, 0, 0, 0, 0x41, 0x42}));
}

TEST_F(TraceMessageBufferTest, everyRecordSurvivesBeingCutAnywhere)
{
    CANAltTraceMessage full(5, canData, 8, 7);
    full.reservedByte1 = 0x11;
    full.reservedWord1 = 0x22334455;
    full.reservedByte2 = 0x66;
    full.reservedWord2 = 0x778899AA;
    const std::vector<Bytes> records = {frameRecord,
                                        otherRecord,
                                        bytesOf(full),
                                        recordOfUnknownId(),
                                        bytesOf(CANTransportTraceMessage({})),
                                        bytesOf(CANTransportTraceMessage(pattern(300), 0x123, 9))};
    Bytes stream;
    for (const Bytes& record : records) {
        stream.insert(stream.end(), record.begin(), record.end());
    }
    for (std::size_t cutAt = 0; cutAt <= stream.size(); ++cutAt) {
        given.clear();
        write(firstOf(stream, cutAt));
        takeAll();
        write({stream.begin() + static_cast<std::ptrdiff_t>(cutAt), stream.end()});
        takeAll();
        ASSERT_EQ(given, records) << "cut at " << cutAt;
    }
}

TEST_F(TraceMessageBufferTest, dropsExactlyWhatIsNoRecord)
{
    const Bytes transport = bytesOf(CANTransportTraceMessage(pattern(300)));
    struct {
        const char* what;
        Bytes input;
        const char* events;
    } const cases[] = {
        {"garbage in front", joined({{1, 2, 3}, frameRecord}), "message dropped 3 "},
        {"garbage between", joined({frameRecord, {1, 2}, otherRecord}),
         "message message dropped 2 "},
        {"two runs, one report", joined({{1}, frameRecord, {2, 3}, frameRecord}),
         "message message dropped 3 "},
        {"half a marker", joined({{0xA3}, frameRecord}), "message dropped 1 "},
        {"garbage alone", {1, 2, 3, 4, 5}, "dropped 5 "},
        {"length below the header", joined({with(recordOfUnknownId(), 4, 15), frameRecord}),
         "message dropped 20 "},
        {"length above 1 MiB", joined({with(recordOfUnknownId(), 6, 0x11), frameRecord}),
         "message dropped 20 "},
        {"a frame too long for its id", joined({with(frameRecord, 4, 96), otherRecord}),
         "message dropped 39 "},
        {"data length 65", joined({with(frameRecord, 26, 65), otherRecord}), "message dropped 39 "},
        {"data beyond the record", joined({with(frameRecord, 26, 9), otherRecord}),
         "message dropped 39 "},
        {"a request shorter than its body",
         joined({with(with(transport, 4, 23), 5, 0), frameRecord}), "message dropped 324 "},
        {"a frame cut in its header", joined({firstOf(frameRecord, 9), otherRecord, frameRecord}),
         "message message dropped 9 "},
        {"a frame cut in its data", joined({firstOf(frameRecord, 36), otherRecord, frameRecord}),
         "message message dropped 36 "},
        {"a request cut in its payload",
         joined({firstOf(transport, 200), frameRecord, frameRecord, frameRecord, frameRecord}),
         "message message message message dropped 200 "},
    };
    for (const auto& row : cases) {
        write(row.input);
        EXPECT_EQ(takeAll(), row.events) << row.what;
    }
}

TEST_F(TraceMessageBufferTest, aMessageThatCarriesRecordsIsOneMessage)
{
    const Bytes tunnel = bytesOf(CANTransportTraceMessage(joined({frameRecord, frameRecord})));
    write(joined({tunnel, frameRecord, tunnel, {1}}));
    EXPECT_EQ(takeAll(), "message message message dropped 1 ");
    EXPECT_EQ(given, (std::vector<Bytes>{tunnel, frameRecord, tunnel}));
}

TEST_F(TraceMessageBufferTest, readsAgainOnlyWhenNoCompleteRecordWaits)
{
    write(frameRecord);
    ASSERT_EQ(buffer.read(), 0);
    const Bytes filler(65536, 0); // a full pipe stays full as long as nothing reads from it
    ASSERT_EQ(::write(ends[1], filler.data(), filler.size()), 65536);
    ASSERT_EQ(buffer.read(), 0);
    EXPECT_EQ(::write(ends[1], filler.data(), 4096), -1);
    EXPECT_NE(buffer.getNextMessage(), nullptr);
    ASSERT_EQ(buffer.read(), 0);
    EXPECT_EQ(::write(ends[1], filler.data(), 4096), 4096);
}

TEST_F(TraceMessageBufferTest, aFailedReadIsTold)
{
    TraceMessageBuffer closed(-1, nullptr);
    EXPECT_EQ(closed.read(), -1);
    EXPECT_EQ(errno, EBADF);
}
