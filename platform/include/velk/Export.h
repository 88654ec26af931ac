// SPDX-License-Identifier: MIT
#pragma once

/// Marks what the shared library exports; everything else is hidden.
#define VELK_EXPORT [[gnu::visibility("default")]]
