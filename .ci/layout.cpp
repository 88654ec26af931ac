// SPDX-License-Identifier: MIT
// Prints the size of each exported class and the offset of each field of CANTransportThread. Programs that
// derive from it or hold one by value are compiled against these numbers.

#include "velk/BufferMismatchException.h"
#include "velk/CANTransportClient.h"
#include "velk/CANTransportGate.h"
#include "velk/CANTransportThread.h"
#include "velk/VelkException.h"

#include <cstddef>
#include <cstdio>

#pragma GCC diagnostic ignored "-Winvalid-offsetof"

struct CANTransportThreadAccess {
    static void print()
    {
#define FIELD(name) std::printf("%4zu %s\n", offsetof(CANTransportThread, name), #name)
        FIELD(traceBuffer);
        FIELD(delegate);
        FIELD(canProxyFD);
        FIELD(state);
        FIELD(inputPipe);
        FIELD(outputPipe);
        FIELD(queueMutex);
        FIELD(expectedFrame);
        FIELD(sendCANid);
        FIELD(sequenceCounter);
        FIELD(sendRetry);
        FIELD(remainingLength);
        FIELD(selectTimeout);
        FIELD(selectTimeoutLeft);
        FIELD(connected);
        FIELD(reportFailure);
        FIELD(debugLevel);
        FIELD(sendQueue);
        FIELD(receiveBuffer);
        FIELD(msgPart);
        FIELD(receptionSpoiled);
        FIELD(openCalled);
        FIELD(outlet);
    }
};

int main()
{
#define SIZE(name) std::printf("%4zu sizeof %s\n", sizeof(name), #name)
    SIZE(BufferMismatchException);
    SIZE(CANAltTraceMessage);
    SIZE(CANExtTraceMessage);
    SIZE(CANTraceMessage);
    SIZE(CANTraceMessageBase);
    SIZE(CANTransportClient);
    SIZE(CANTransportClient::Message);
    SIZE(CANTransportClient::Options);
    SIZE(CANTransportGate);
    SIZE(CANTransportGate::Counters);
    SIZE(CANTransportThread);
    SIZE(CANTransportThread::TPCANMsg);
    SIZE(CANTransportTraceMessage);
    SIZE(MessageBase);
    SIZE(Mutex);
    SIZE(Thread);
    SIZE(TraceMessageBuffer);
    SIZE(VelkException);
    CANTransportThreadAccess::print();
}
