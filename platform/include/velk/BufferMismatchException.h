#pragma once

#include "velk/Export.h"

#include <stdexcept>
#include <string>

/// A trace message holds more bytes than the frame that is to take them.
class VELK_EXPORT BufferMismatchException : public std::runtime_error {
public:
    explicit BufferMismatchException(const std::string& text);
    BufferMismatchException(const BufferMismatchException&) = default;
    BufferMismatchException& operator=(const BufferMismatchException&) = default;
    ~BufferMismatchException() override;
};
