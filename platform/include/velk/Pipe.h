// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Export.h"

/// Creates a pipe: `ends[0]` is the read end, `ends[1]` the write end. Both block, are close-on-exec, and are
/// never descriptor 0, 1 or 2: a host program that runs without its standard streams must not write its
/// output there.
/// @return whether it was created; otherwise errno is set and `ends` is unchanged.
VELK_EXPORT bool createPipe(int (&ends)[2]);

/// Closes both ends; an end of -1 is ignored.
VELK_EXPORT void closePipe(const int (&ends)[2]);

/// Makes reads and writes on the descriptor's open file fail with EAGAIN where they would block.
/// @return whether it succeeded; otherwise errno is set.
VELK_EXPORT bool setNonBlocking(int descriptor);
