// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Export.h"

#include <stdexcept>
#include <string>

/// A trace message holds more data bytes than fit into a frame.
class VELK_EXPORT BufferMismatchException : public std::runtime_error {
public:
    explicit BufferMismatchException(const std::string& text);
    BufferMismatchException(const BufferMismatchException&) = default;
    BufferMismatchException& operator=(const BufferMismatchException&) = default;
    ~BufferMismatchException() override;
};
