// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

#include <sys/types.h>

/// Failures of the calls that this program makes, in all of its threads.
namespace Injection {

/// The `turn`-th call of that name from now on fails, and with `always` each one behind it. The
/// name of operator new is "allocation".
void arm(const char* call, long turn, bool always);
void disarm();
/// Whether a call has failed since arm().
bool hasHit();

/// Blocks from operator new that are in use.
long blocksInUse();

/// These never fail.
ssize_t realRead(int fd, void* bytes, std::size_t size) asm("__real_read");
ssize_t realWrite(int fd, const void* bytes, std::size_t size) asm("__real_write");

} // namespace Injection
