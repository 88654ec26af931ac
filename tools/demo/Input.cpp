// SPDX-License-Identifier: MIT
#include "demo/Input.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

constexpr const char* defaultFile = "velkcan-demo-file.h";

[[noreturn]] void fail(const std::string& name, const std::string& reason)
{
    throw std::runtime_error("cannot read '" + name + "': " + reason);
}

std::string besideTheProgram()
{
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    const fs::path file = program.parent_path() / defaultFile;
    return !error && fs::exists(file, error) ? file.string() : program.string();
}

} // namespace

Input readInput(const std::string& name)
{
    Input input{name.empty() ? besideTheProgram() : name, {}};
    std::error_code error;
    const fs::file_status status = fs::status(input.name, error);
    if (!fs::exists(status)) {
        fail(input.name, error ? error.message() : "there is no such file");
    }
    if (!fs::is_regular_file(status)) {
        fail(input.name,
             fs::is_directory(status) ? "it is a directory" : "it is not a regular file");
    }
    errno = 0;
    std::ifstream stream(input.name, std::ios::binary);
    if (!stream) {
        fail(input.name, std::strerror(errno));
    }
    char block[65536];
    while (stream.read(block, sizeof block), stream.gcount() > 0) {
        input.bytes.insert(input.bytes.end(), block, block + stream.gcount());
    }
    if (stream.bad()) {
        fail(input.name, std::strerror(errno));
    }
    return input;
}
