// SPDX-License-Identifier: MIT
#include "Input.h"

#include <fstream>
#include <iterator>

namespace {

/// Runs the inputs in the files of the command line once, for builds without libFuzzer.
int replay(int count, char** names)
{
    require(count > 1, "there is a corpus");
    for (int i = 1; i < count; ++i) {
        std::ifstream file(names[i], std::ios::binary);
        require(file.is_open(), names[i]);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) { return runProgram(replay, argc, argv); }
