// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A chain of filters that is itself a filter.
///
///     MultiFilter chain;
///     chain.addFilter(new MedianFilter(5));  // the chain deletes it

#include <zephly/dsp/filter.h>
#include <zephly/platform/export.h>

#include <memory>
#include <vector>

/// Hands each sample through its members in the order in which they were added. Its reset does
/// nothing: the members keep their state.
class ZEPHLY_EXPORT MultiFilter : public Filter {
 public:
  /// An empty chain, which gives its input back.
  MultiFilter() = default;
  /// Deletes the members, in the order in which they were added.
  ~MultiFilter() override;

  /// Appends `f` and takes it over, also when memory runs out (std::bad_alloc, `f` is deleted
  /// then). It must come from `new`, must not be added twice, and must not be null once samples are
  /// processed. Pointers that others keep to it are good for the life of the chain.
  void addFilter(Filter* f);

  /// The last member's answer; remembers lastInput().
  double process(double x) override;

 private:
  std::vector<std::unique_ptr<Filter>> filters;
};
