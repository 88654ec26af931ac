// SPDX-License-Identifier: MIT
#pragma once

#include "RequestQueue.h"

/// A message to be sent. A request of send() is on the caller's stack; `submitted` owns those of submit().
struct RequestQueue::Request {
    const Bytes& message; ///< The caller's bytes; from submit(): `copy`.
    Clock::time_point deadline;
    Ticket ticket = 0; ///< 0: a caller waits for `ended`.
    Bytes copy{};
    std::optional<Result> result{};
    std::condition_variable ended{};

    Request(const Bytes& bytes, Clock::time_point latest) : message(bytes), deadline(latest) {}
    Request(Bytes bytes, Clock::time_point latest, Ticket number)
        : message(copy),
          deadline(latest),
          ticket(number),
          copy(std::move(bytes))
    {
    }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;
};
