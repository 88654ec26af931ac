// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Export.h"

/// Blocks the calling thread for `milliseconds`; a signal does not shorten the time.
VELK_EXPORT void millisleep(int milliseconds);
