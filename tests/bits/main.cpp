// SPDX-License-Identifier: MIT
/// @file
/// Prints one digest per numeric class over long seeded input. The results have the same bits with
/// every compiler, optimisation and machine, so two builds must give the same output.

#include <tests/bits/digest.h>

int main() {
  bits::digestProtocol();
  bits::digestDsp();
  bits::digestMotion();
  bits::digestVitals(ZEPHLY_RECORDINGS "/resting_5min_100hz.csv");
}
