#pragma once

#include <cstdio>
#include <memory>
#include <string>

/// Reads lines from a file or from standard input, each as soon as it arrives.
class LineInput {
public:
    /// @param name empty for standard input. @throws std::system_error
    explicit LineInput(const std::string& name);
    /// Reads the next line. A line that is longer than any line of candump is truncated.
    /// @return false at the end of the input and after a signal. @throws std::system_error
    bool read(std::string& line);

private:
    struct Close {
        void operator()(std::FILE* open) const;
    };

    const std::string what;
    std::unique_ptr<std::FILE, Close> file;
};
