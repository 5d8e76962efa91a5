/// @file
/// Prints one digest per numeric class over long seeded input. Two builds of the kit are compared
/// by comparing what this program prints: the results are promised bit for bit, whatever the
/// compiler, its optimisation and the machine.

#include <tests/bits/digest.h>

int main() {
  bits::digestProtocol();
  bits::digestDsp();
  bits::digestMotion();
}
