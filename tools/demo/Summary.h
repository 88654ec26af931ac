#pragma once

#include "demo/DemoOptions.h"
#include "demo/Input.h"

#include <cstddef>
#include <string>
#include <vector>

struct ExchangeResult;

/// A warning if the longest messages cannot be received at the bitrate in the time that the
/// transport grants them; otherwise empty.
std::string paceWarning(const DemoOptions& options, std::size_t fileBytes);

/// What the exchange has come to, as lines for the user.
std::vector<std::string> summary(const Input& input, const ExchangeResult& result);
