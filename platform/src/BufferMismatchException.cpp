// SPDX-License-Identifier: MIT
#include "velk/BufferMismatchException.h"

BufferMismatchException::BufferMismatchException(const std::string& text) : std::runtime_error(text)
{
}

BufferMismatchException::~BufferMismatchException() = default;
