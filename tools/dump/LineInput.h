#pragma once

#include <cstdio>
#include <memory>
#include <string>

/// Lines of a file or of standard input, each at the moment that it comes.
class LineInput {
public:
    /// @param name empty for standard input. @throws std::system_error
    explicit LineInput(const std::string& name);
    /// @returns false at the end, and after a signal. What is longer than any line of candump is cut
    /// off. @throws std::system_error
    bool read(std::string& line);

private:
    struct Close {
        void operator()(std::FILE* open) const;
    };

    const std::string what;
    std::unique_ptr<std::FILE, Close> file;
};
