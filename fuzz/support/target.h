// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The function that every target defines. Called by libFuzzer or by the program that runs files.

#include <cstddef>
#include <cstdint>

/// Uses the code under test as the bytes direct; ends the program when a condition fails that must
/// hold for every input.
/// @param data  `size` bytes, valid during the call; may be null when `size` is 0
/// @return 0: libFuzzer reserves other values
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
