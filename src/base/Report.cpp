// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"
#include "velk/CancellableScope.h"

#include "LogLine.h"

#include <exception>

/// Every status change is reported here: the log line first, then the call. No lock is held during the call,
/// and an exception from the client's function does not reach the protocol.
void CANTransportThread::report(const char* operation, statuschange_t status, unsigned short value)
{
    if (!delegate) {
        return;
    }
    if (status != CTT_ACKNOWLEDGED) {
        infoLine(operation) << status;
    }
    try {
        delegate(status, value);
    } catch (const ThreadCancellation&) {
        throw; // the thread ends: this is not an error
    } catch (const std::exception& error) {
        const char* text = error.what(); // also client code, so not under the log mutex
        clientErrorLine(operation) << "exception from the delegate: " << text;
    } catch (...) {
        clientErrorLine(operation) << "exception from the delegate: not a std::exception";
    }
}
