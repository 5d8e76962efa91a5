#pragma once
/// @file
/// What every target defines, and libFuzzer or the program that runs files calls.

#include <cstddef>
#include <cstdint>

/// Makes a use of the code under test out of any bytes; ends the program where something does not
/// hold that must hold for every input.
/// @param data  `size` bytes, which are there during the call; may be null when there are none
/// @return 0: other values mean something to libFuzzer
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
