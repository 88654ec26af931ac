#include "velk/CANTransportThread.h"
#include "velk/CancellableScope.h"

#include "LogLine.h"

#include <exception>

/// Every status change leaves here: its line, then the call. No lock is held across the call, and what
/// the client's function throws does not reach the protocol.
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
        throw; // the end of the thread is no exception
    } catch (const std::exception& error) {
        const char* text = error.what(); // client code too, so not under the log's mutex
        clientErrorLine(operation) << "exception from the delegate: " << text;
    } catch (...) {
        clientErrorLine(operation) << "exception from the delegate: not a std::exception";
    }
}
