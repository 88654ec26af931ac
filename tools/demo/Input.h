// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/// The file to transfer.
struct Input {
    std::string name;
    std::vector<unsigned char> bytes;
};

/// @return the content of a regular file; without a name, of the file next to the program.
/// @throws std::runtime_error with a text for the user.
Input readInput(const std::string& name);
