#include "demo/Receipt.h"

#include "demo/NibbleFile.h"
#include "support/Endpoint.h"

#include <gtest/gtest.h>

TEST(Receipt, refusesWhatIsNotTheNextMessage)
{
    const Bytes bytes = pattern(8);
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
