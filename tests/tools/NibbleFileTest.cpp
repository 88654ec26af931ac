#include "demo/NibbleFile.h"
#include "demo/Receipt.h"

#include <gtest/gtest.h>

namespace {

using Bytes = NibbleFile::Bytes;

Bytes someBytes(std::size_t count)
{
    Bytes bytes;
    for (std::size_t i = 0; i < count; ++i) {
        bytes.push_back(static_cast<unsigned char>(i * 37 + 5));
    }
    return bytes;
}

} // namespace

TEST(NibbleFile, comesOverWholeInMessagesOfAnySize)
{
    for (const std::size_t length : {1U, 2U, 17U, 100U}) {
        for (const std::size_t size : {1U, 2U, 3U, 16U, 4095U}) {
            const Bytes bytes = someBytes(length);
            const NibbleFile file(bytes);
            Receipt receipt(file);
            unsigned int number = 0;
            while (receipt.position() < file.size()) {
                const Bytes message = file.pack(receipt.position(), number++, size);
                ASSERT_LE(message.size(), size);
                ASSERT_TRUE(receipt.take(message)) << length << " in messages of " << size;
                ASSERT_TRUE(receipt.take(message));
            }
            EXPECT_EQ(number, (2 * length + 2 * size - 2) / (2 * size - 1));
            EXPECT_EQ(receipt.repeats(), number);
        }
    }
}

TEST(Receipt, refusesWhatIsNotTheNextMessage)
{
    const Bytes bytes = someBytes(8);
    const NibbleFile file(bytes);
    const Bytes first = file.pack(0, 0, 4);
    Bytes damaged = first;
    damaged.back() ^= 1U;
    Bytes tooLong = file.pack(0, 0, 9);
    tooLong.push_back(0);
    for (const Bytes& wrong : {Bytes{}, damaged, tooLong, file.pack(7, 1, 4), file.pack(0, 1, 4)}) {
        Receipt receipt(file);
        EXPECT_FALSE(receipt.take(wrong));
        EXPECT_TRUE(receipt.take(first));
        EXPECT_FALSE(receipt.take(damaged)) << "neither the next message nor a repeat";
    }
}
