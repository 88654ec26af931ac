// SPDX-License-Identifier: MIT
#pragma once

#include "velk/LogUtil.h"
#include "velk/Millisleep.h"

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>
#include <string>

/// Takes what goes to std::cout and std::cerr while it lives. What a running thread logs is read
/// under the mutex that it logs under.
class LogCapture {
public:
    LogCapture() : cout(std::cout.rdbuf(outText.rdbuf())), cerr(std::cerr.rdbuf(errText.rdbuf())) {}
    ~LogCapture()
    {
        std::cout.rdbuf(cout);
        std::cerr.rdbuf(cerr);
    }

    /// What has come since the last call.
    std::string out() { return take(outText); }
    std::string err() { return take(errText); }

    /// Returns when the text has been written to one of the two.
    void waitFor(const std::string& text)
    {
        const auto has = [&] {
            const std::lock_guard<std::mutex> lock(LogUtil::logMutex);
            return (outText.str() + errText.str()).find(text) != std::string::npos;
        };
        while (!has()) {
            millisleep(1);
        }
    }

private:
    static std::string take(std::ostringstream& stream)
    {
        const std::lock_guard<std::mutex> lock(LogUtil::logMutex);
        std::string text = stream.str();
        stream.str("");
        return text;
    }

    std::ostringstream outText;
    std::ostringstream errText;
    std::streambuf* cout;
    std::streambuf* cerr;
};

/// While it lives, each write to std::cout and std::cerr throws, and both streams let it out.
class FailingStreams {
public:
    FailingStreams()
    {
        for (std::ostream* stream : {&std::cout, &std::cerr}) {
            stream->rdbuf(&buffer);
            stream->exceptions(all);
        }
    }
    ~FailingStreams()
    {
        for (std::ostream* stream : {&std::cout, &std::cerr}) {
            EXPECT_TRUE(stream->good() && stream->exceptions() == all) << "as it was";
            stream->exceptions(std::ios_base::goodbit);
        }
    }

private:
    static constexpr auto all =
        std::ios_base::badbit | std::ios_base::failbit | std::ios_base::eofbit;
    struct Failing : std::streambuf {
        int overflow(int /*byte*/) override { throw 1; }
        int sync() override { throw 1; }
    } buffer;
    LogCapture restorer; ///< Of the buffers.
};
