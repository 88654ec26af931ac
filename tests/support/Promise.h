// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <exception>
#include <stdexcept>

/// A broken promise ends the run; a fuzzer takes what nobody catches for a finding.
struct BrokenPromise : std::runtime_error {
    using std::runtime_error::runtime_error;
};
inline void require(bool kept, const char* promise)
{
    if (!kept) {
        throw BrokenPromise(promise);
    }
}

/// The body of `main`: a program that an exception ends prints why and exits with 2.
inline int runProgram(int (*program)(int, char**), int argc, char** argv)
{
    try {
        return program(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
}
