// SPDX-License-Identifier: MIT
#pragma once

#include "demo/DemoOptions.h"
#include "demo/Input.h"

#include <cstddef>
#include <string>
#include <vector>

struct ExchangeResult;

/// @return a warning if the bitrate is too low for the longest messages to arrive in time; otherwise empty.
std::string paceWarning(const DemoOptions& options, std::size_t fileBytes);

/// @return the result of the exchange, as lines for the user.
std::vector<std::string> summary(const Input& input, const ExchangeResult& result);
