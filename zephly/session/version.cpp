// SPDX-License-Identifier: MIT
#include <zephly/session/version.h>

// Kept in the library even when nothing refers to them.
extern "C" {
[[gnu::used]] const double ZephlyVersionNumber = 1.0;
[[gnu::used]] const char ZephlyVersionString[] = "@(#)PROGRAM:Zephly  PROJECT:Zephly-SDK-1\n";
}
