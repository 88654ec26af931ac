// SPDX-License-Identifier: MIT
#pragma once

#include "velk/VelkException.h"

#include <string>
#include <system_error>

/// @throws VelkException always: "what: text of the error", with the errno value as its code.
[[noreturn]] inline void throwErrno(const std::string& what, int error)
{
    VelkException exception;
    exception << what << ": " << std::generic_category().message(error);
    exception.code = error;
    throw exception;
}
