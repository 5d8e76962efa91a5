// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The same test for each form of the stages: scalar, and in the vectors of each instruction set
/// that this processor has.

#include <offline/vector_forms.h>

#include <tests/support/bits.h>
#include <tests/support/random_floats.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Calls `test` with each form in use.
template <class Test>
void withEachForm(const Test& test) {
  struct Restore {
    ~Restore() { Zephly::offline::useVectorForms(before); }
    const Zephly::offline::VectorForms* before = Zephly::offline::vectorForms();
  } restore;
  Zephly::offline::useVectorForms(nullptr);
  {
    SCOPED_TRACE("scalar");
    test();
  }
  for (const Zephly::offline::VectorForms* forms : Zephly::offline::allVectorForms()) {
    SCOPED_TRACE(forms->name);
    Zephly::offline::useVectorForms(forms);
    test();
  }
}

/// What a new `Stage` gives in blocks of up to `longest` samples and between copies of itself.
/// `expected` has the type of the results.
template <class Stage, class In, class Out>
std::vector<Out> inBlocks(const std::vector<In>& in, const std::vector<Out>& expected,
                          std::size_t longest) {
  RandomFloats random(static_cast<std::uint32_t>(longest));
  Stage stage;
  std::vector<Out> out(expected.size());
  for (std::size_t begin = 0; begin < in.size();) {
    const std::size_t length = std::min(random.below(longest + 1), in.size() - begin);
    Stage next = stage;
    next.process(std::span(in).subspan(begin, length), std::span(out).subspan(begin, length));
    stage = next;
    begin += length;
  }
  return out;
}

/// Expects the bits of `expected` from that.
template <class Stage, class In, class Out>
void expectInBlocks(const std::vector<In>& in, const std::vector<Out>& expected,
                    std::size_t longest) {
  SCOPED_TRACE(longest);
  const std::vector<Out> out = inBlocks<Stage>(in, expected, longest);
  for (std::size_t i = 0; i < in.size(); ++i) {
    ASSERT_SAME_BITS(out[i], expected[i]) << "sample " << i;
  }
}
