#include "velk/CANTransportThread.h"

#include "thread/LogLine.h"

#include <exception>

#include <cxxabi.h>

/// Every status change leaves here: its line, then the call. No lock is held across the call, and
/// what the client's function throws does not get into the protocol.
void CANTransportThread::report(const char* operation, statuschange_t status, unsigned short value)
{
    if (!delegate) {
        return;
    }
    if (status != CTT_ACKNOWLEDGED) {
        LogLine::info(operation) << status;
    }
    try {
        delegate(status, value);
    } catch (const abi::__forced_unwind&) {
        throw; // the end of the thread, no exception
    } catch (const std::exception& error) {
        const char* text = error.what(); // the client's code too: not under the log's mutex
        LogLine::clientError(operation) << "exception from the delegate: " << text;
    } catch (...) {
        LogLine::clientError(operation) << "exception from the delegate: not a std::exception";
    }
}
