// SPDX-License-Identifier: MIT
/// @file
/// Prints one digest per numeric class over long seeded input. Two builds of the kit are compared
/// by comparing the output of this program: the results are the same bits for every compiler,
/// optimisation and machine.

#include <tests/bits/digest.h>

int main() {
  bits::digestProtocol();
  bits::digestDsp();
  bits::digestMotion();
}
