// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <ostream>
#include <string>

/// How often each thing that a run can meet was met. They are listed in a file: one that was never met
/// is a hole in the proof, one that is not listed a mistake.
class Cells {
public:
    explicit Cells(const std::string& list)
    {
        std::ifstream file(list);
        for (std::string name; std::getline(file, name);) {
            counts.emplace(name, 0);
        }
    }

    void hit(const std::string& name, std::uint64_t times = 1) { counts.at(name) += times; }

    /// Prints all; returns how many were never met.
    int print(std::ostream& stream) const
    {
        int holes = 0;
        for (const auto& [name, count] : counts) {
            holes += count == 0 ? 1 : 0;
            stream << (count == 0 ? "NEVER  " : "       ") << name << ": " << count << '\n';
        }
        return holes;
    }

private:
    std::map<std::string, std::uint64_t> counts;
};
