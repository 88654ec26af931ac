#pragma once

#include <string>
#include <vector>

/// The file to transfer.
struct Input {
    std::string name;
    std::vector<unsigned char> bytes;
};

/// @return a whole regular file; with no name, the one beside the program.
/// @throws std::runtime_error with a text for the user.
Input readInput(const std::string& name);
