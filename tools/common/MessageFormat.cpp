// SPDX-License-Identifier: MIT
#include "common/MessageFormat.h"

#include "common/HexText.h"
#include "common/Options.h"
#include "common/Tool.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace {

using std::chrono::system_clock;

std::string hexOf(const CANTransportClient::Bytes& bytes, const char* between)
{
    return hexText(bytes.data(), bytes.size(), between);
}

std::string jsonTime()
{
    const std::chrono::duration<double> time = system_clock::now().time_since_epoch();
    char text[64];
    std::snprintf(text, sizeof text, R"({"time":%.6f,)", time.count());
    return text;
}

std::string jsonOf(const CANTransportClient::Message& message)
{
    char head[64];
    std::snprintf(head, sizeof head, R"("id":"%03X","length":%zu,"data":")", message.canID,
                  message.bytes.size());
    return jsonTime() + head + hexOf(message.bytes, "") + "\"}\n";
}

std::string timeOfDay()
{
    const auto now = system_clock::now();
    const std::time_t seconds = system_clock::to_time_t(now);
    const auto part = std::chrono::floor<std::chrono::milliseconds>(now.time_since_epoch()) % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d ", local.tm_hour, local.tm_min,
                  local.tm_sec, static_cast<int>(part.count()));
    return text;
}

const char* wordsFor(CANTransportClient::Status status)
{
    switch (status) {
    case CANTransportThread::CTT_CONNECTED:
        return "connected";
    case CANTransportThread::CTT_DISCONNECTED:
        return "disconnected";
    case CANTransportThread::CTT_SEND_TIMEOUT:
        return "send timeout";
    case CANTransportThread::CTT_RECEIVE_TIMEOUT:
        return "receive timeout";
    case CANTransportThread::CTT_ACKNOWLEDGED:
        return "acknowledged";
    }
    return "unknown";
}

} // namespace

void addFormat(CLI::App& app, MessageFormat& format, const std::string& rawHelp,
               const std::string& jsonHelp)
{
    auto* const raw = app.add_flag("--raw", format.raw, rawHelp);
    app.add_flag("--json", format.json, jsonHelp)->excludes(raw);
}

void print(const CANTransportClient::Message& message, const MessageFormat& format)
{
    if (format.raw) {
        Tool::print(message.bytes.data(), message.bytes.size());
        return;
    }
    const std::string line = format.json ? jsonOf(message) : hexOf(message.bytes, " ") + '\n';
    Tool::print(line.data(), line.size());
}

void printStatus(const CANTransportClient::StatusChange& change, const MessageFormat& format)
{
    const std::string words = wordsFor(change.status);
    Tool::printError(format.json ? jsonTime() + R"("status":")" + words + "\"}"
                                 : timeOfDay() + words);
}
