// SPDX-License-Identifier: MIT
// No #pragma once: included once for each instruction set.
#if defined(ZEPHLY_OFFLINE_MEDIAN_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef ZEPHLY_OFFLINE_MEDIAN_LANES_INL_H
#undef ZEPHLY_OFFLINE_MEDIAN_LANES_INL_H
#else
#define ZEPHLY_OFFLINE_MEDIAN_LANES_INL_H
#endif
/// @file
/// Running medians of 300 by sorting: each segment of time is sorted once, and then the window
/// moves over the ranks (J. Suomela, "Median Filtering is Equivalent to Sorting", 2014).
/// RunningMedian is the scalar form.
///
/// Four segments at a time, one in each column of a table of keys; a vector is a part of a row:
///
///              column 0     column 1     column 2     column 3
///   row 0      s[0]         s[m]         s[2m]        s[3m]           299 rows of history,
///   ...                                                               which is the end of
///   row 298    s[298]       s[m + 298]   ...                          the segment before
///   row 299    s[299]       s[m + 299]   ...                          m rows that get a median
///   ...
///   row 1023   infinity     infinity     infinity     infinity        the rest
///
/// A key is the sample with its lowest ten bits replaced by the row. So no two keys are equal, one
/// pair of min and max orders two keys in each column, and the sorted keys name their rows. Samples
/// that differ in the lowest ten bits only may come out in the wrong order; a segment with such
/// ones is sorted again by the samples themselves.
///
/// A bitmap over the ranks of a column holds which of its rows are in the window. A step of the
/// window clears one bit and sets one; the median is at most one set bit away from the last one.

#include <offline/exact_order.h>
#include <offline/lanes_inl.h>

#include <hwy/highway.h>

#include <cmath>
#include <cstddef>
#include <cstdint>

HWY_BEFORE_NAMESPACE();
namespace Zephly::offline::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

constexpr std::size_t medianColumns = 4;
constexpr std::size_t medianLanes = doubleLanes;
constexpr std::size_t medianWindow = 300;
constexpr std::size_t medianHistory = medianWindow - 1;
constexpr std::size_t medianRows = 1024;
constexpr std::size_t medianSegment = medianRows - medianHistory;

HWY_INLINE void orderPair(Row& low, Row& high) {
  const Row least = hn::Min(low, high);
  high = hn::Max(low, high);
  low = least;
}

// Eight rows in registers. Not an array: g++ -O2 would keep that in memory.
struct Eight {
  Row a, b, c, d, e, f, g, h;
};

// `low` is the address of the first four, `high` of the last four; `distance` in numbers.
HWY_INLINE Eight loadEight(const double* low, const double* high, std::size_t distance) {
  const Doubles t;
  return {hn::Load(t, low),
          hn::Load(t, low + distance),
          hn::Load(t, low + 2 * distance),
          hn::Load(t, low + 3 * distance),
          hn::Load(t, high),
          hn::Load(t, high + distance),
          hn::Load(t, high + 2 * distance),
          hn::Load(t, high + 3 * distance)};
}

HWY_INLINE void storeEight(const Eight& r, double* low, double* high, std::size_t distance) {
  const Doubles t;
  hn::Store(r.a, t, low);
  hn::Store(r.b, t, low + distance);
  hn::Store(r.c, t, low + 2 * distance);
  hn::Store(r.d, t, low + 3 * distance);
  hn::Store(r.e, t, high);
  hn::Store(r.f, t, high + distance);
  hn::Store(r.g, t, high + 2 * distance);
  hn::Store(r.h, t, high + 3 * distance);
}

// The stages of a bitonic merge at distance 1, 2 and 4, and the one that folds eight rows.
HWY_INLINE void orderNeighbours(Eight& r) {
  orderPair(r.a, r.b);
  orderPair(r.c, r.d);
  orderPair(r.e, r.f);
  orderPair(r.g, r.h);
}
HWY_INLINE void orderByTwo(Eight& r) {
  orderPair(r.a, r.c);
  orderPair(r.b, r.d);
  orderPair(r.e, r.g);
  orderPair(r.f, r.h);
}
HWY_INLINE void orderByFour(Eight& r) {
  orderPair(r.a, r.e);
  orderPair(r.b, r.f);
  orderPair(r.c, r.g);
  orderPair(r.d, r.h);
}
HWY_INLINE void foldEight(Eight& r) {
  orderPair(r.a, r.h);
  orderPair(r.b, r.g);
  orderPair(r.c, r.f);
  orderPair(r.d, r.e);
}
HWY_INLINE void foldFours(Eight& r) {
  orderPair(r.a, r.d);
  orderPair(r.b, r.c);
  orderPair(r.e, r.h);
  orderPair(r.f, r.g);
}

constexpr std::size_t medianTable = medianRows * medianLanes;

// Each eight neighbouring rows in ascending order.
HWY_INLINE void sortEights(double* keys) {
  for (double* at = keys; at < keys + medianTable; at += 8 * medianLanes) {
    Eight r = loadEight(at, at + 4 * medianLanes, medianLanes);
    orderNeighbours(r);
    foldFours(r);
    orderNeighbours(r);
    foldEight(r);
    orderByTwo(r);
    orderNeighbours(r);
    storeEight(r, at, at + 4 * medianLanes, medianLanes);
  }
}

// The first three stages of merging two sorted halves of `size` rows: each row with its mirror
// image, then the distances size / 4 and size / 8.
HWY_INLINE void foldHalves(double* keys, std::size_t size) {
  const std::size_t distance = size / 8 * medianLanes;
  for (double* base = keys; base < keys + medianTable; base += 8 * distance) {
    for (std::size_t i = 0; i < distance; i += medianLanes) {
      double* const low = base + i;
      double* const high = base + 5 * distance - medianLanes - i;
      Eight r = loadEight(low, high, distance);
      foldEight(r);
      orderByTwo(r);
      orderNeighbours(r);
      storeEight(r, low, high, distance);
    }
  }
}

// The remaining stages: from distance `rows` down to 1, three at a time as long as there are three.
HWY_INLINE void mergeDownFrom(double* keys, std::size_t rows) {
  for (; rows >= 4; rows /= 8) {
    const std::size_t distance = rows / 4 * medianLanes;
    for (double* base = keys; base < keys + medianTable; base += 8 * distance) {
      for (double* at = base; at < base + distance; at += medianLanes) {
        Eight r = loadEight(at, at + 4 * distance, distance);
        orderByFour(r);
        orderByTwo(r);
        orderNeighbours(r);
        storeEight(r, at, at + 4 * distance, distance);
      }
    }
  }
  if (rows == 0) return;
  for (double* at = keys; at < keys + medianTable; at += 8 * medianLanes) {
    Eight r = loadEight(at, at + 4 * medianLanes, medianLanes);
    if (rows == 2) orderByTwo(r);
    orderNeighbours(r);
    storeEight(r, at, at + 4 * medianLanes, medianLanes);
  }
}

// Bitonic sort of each column of a table that is one vector wide.
HWY_NOINLINE void sortColumns(double* keys) {
  sortEights(keys);
  for (std::size_t size = 16; size <= medianRows; size *= 2) {
    foldHalves(keys, size);
    mergeDownFrom(keys, size / 16);
  }
}

// The window over the ranks of one column, whose sorted keys are replaced by their samples. A place
// is a rank plus 64: bit 0 of word 1 is rank 0. The first word and the last two are full, so that a
// search always ends.
struct RankWindow {
  std::uint64_t words[medianRows / 64 + 3];
  std::uint16_t places[medianRows];  // of each row
  double* sorted;                    // of rank 0; the next one is a row further
  std::uint32_t lower;               // the place of the 151st smallest
  std::uint32_t upper;               // and of the 152nd
  const double* samples;             // of row 0
  double* medians;                   // of row 299
};

HWY_INLINE std::uint32_t nextSet(const RankWindow& window, std::uint32_t place) {
  std::size_t word = place >> 6;
  std::uint64_t above = window.words[word] & (~std::uint64_t{1} << (place & 63));
  while (above == 0) above = window.words[++word];
  return static_cast<std::uint32_t>(word << 6) + static_cast<std::uint32_t>(__builtin_ctzll(above));
}

HWY_INLINE std::uint32_t previousSet(const RankWindow& window, std::uint32_t place) {
  std::size_t word = place >> 6;
  std::uint64_t below = window.words[word] & ((std::uint64_t{1} << (place & 63)) - 1);
  while (below == 0) below = window.words[--word];
  return static_cast<std::uint32_t>(word << 6) + 63 -
         static_cast<std::uint32_t>(__builtin_clzll(below));
}

// Takes over a sorted column, and puts the window on its first 300 rows. Returns whether the order
// of the keys was that of the samples.
HWY_NOINLINE bool fillWindow(RankWindow& window, std::size_t rows) {
  const double* const samples = window.samples;
  double last = -HUGE_VAL;
  bool ordered = true;
  for (std::size_t rank = 0; rank < rows; ++rank) {
    std::uint64_t key;
    hwy::CopyBytes<8>(window.sorted + rank * medianLanes, &key);
    const std::size_t row = key % medianRows;
    const double sample = samples[row];
    ordered &= last <= sample;
    last = sample;
    window.sorted[rank * medianLanes] = sample;
    window.places[row] = static_cast<std::uint16_t>(64 + rank);
  }
  if (!ordered) sortExactly(samples, rows, window.sorted, medianLanes, window.places, 64);
  for (std::uint64_t& word : window.words) word = 0;
  window.words[0] = ~std::uint64_t{0};
  window.words[medianRows / 64 + 1] = ~std::uint64_t{0};
  window.words[medianRows / 64 + 2] = ~std::uint64_t{0};
  for (std::size_t row = 0; row < medianWindow; ++row) {
    window.words[window.places[row] >> 6] |= std::uint64_t{1} << (window.places[row] & 63);
  }
  window.lower = 63;
  for (std::size_t i = 0; i <= medianWindow / 2; ++i) window.lower = nextSet(window, window.lower);
  window.upper = nextSet(window, window.lower);
  return ordered;
}

// The median of the window that ends with row 299 + i.
HWY_INLINE void writeMedian(const RankWindow& window, std::size_t i) {
  const double* const sorted = window.sorted - 64 * medianLanes;
  window.medians[i] =
      (sorted[window.lower * medianLanes] + sorted[window.upper * medianLanes]) * 0.5;
}

// From rows i to i + 299 to the next. Of the places around the lower median, 32 below it and 31
// above it are looked at together, and the choice has no branch, which would be unpredictable.
HWY_INLINE void moveWindow(RankWindow& window, std::size_t i) {
  const std::uint32_t old = window.places[i];
  const std::uint32_t added = window.places[i + medianWindow];
  window.words[old >> 6] &= ~(std::uint64_t{1} << (old & 63));
  window.words[added >> 6] |= std::uint64_t{1} << (added & 63);
  const std::uint32_t at = window.lower;
  const std::uint32_t first = at - 32;
  const std::uint64_t around = window.words[first >> 6] >> (first & 63) |
                               window.words[(first >> 6) + 1] << 1 << (63 - (first & 63));
  const auto below = static_cast<std::uint32_t>(around);
  const std::uint64_t above = around >> 33;
  const std::uint64_t aboveNext = above & (above - 1);
  std::uint32_t down;
  std::uint32_t up;
  std::uint32_t upNext;
  if (HWY_LIKELY(below != 0 && aboveNext != 0)) {
    down = at - 1 - static_cast<std::uint32_t>(__builtin_clz(below));
    up = at + 1 + static_cast<std::uint32_t>(__builtin_ctzll(above));
    upNext = at + 1 + static_cast<std::uint32_t>(__builtin_ctzll(aboveNext));
  } else {
    down = previousSet(window, at);
    up = nextSet(window, at);
    upNext = nextSet(window, up);
  }
  const bool goesDown = added < at && old >= at;
  const bool goesUp = added > at && old <= at;
  const std::uint32_t afterDown = old == at ? up : at;
  std::uint32_t lower = goesDown ? down : at;
  std::uint32_t upper = goesDown ? afterDown : up;
  lower = goesUp ? up : lower;
  upper = goesUp ? upNext : upper;
  window.lower = lower;
  window.upper = upper;
}

// The keys of one vector of columns.
HWY_INLINE void fillKeys(const RankWindow* columns, std::size_t rows, double* keys) {
  const Doubles d;
  const hn::RebindToUnsigned<Doubles> bits;
  const auto lowBits = hn::Set(bits, std::uint64_t{medianRows - 1});
  const auto store = [&](std::size_t row, Row x) HWY_ATTR {
    const auto number = hn::Set(bits, std::uint64_t{row});
    const auto key = hn::Or(hn::AndNot(lowBits, hn::BitCast(bits, x)), number);
    hn::Store(hn::BitCast(d, key), d, keys + row * medianLanes);
  };
  std::size_t row = 0;
  for (; row + medianLanes <= rows; row += medianLanes) {
    const Row a = hn::LoadU(d, columns[0].samples + row);
    const Row b = hn::LoadU(d, columns[1].samples + row);
    const Row even = hn::InterleaveLower(d, a, b);
    const Row odd = hn::InterleaveUpper(d, a, b);
    if constexpr (medianLanes == 2) {
      store(row, even);
      store(row + 1, odd);
    } else {
      const Row c = hn::LoadU(d, columns[medianLanes - 2].samples + row);
      const Row e = hn::LoadU(d, columns[medianLanes - 1].samples + row);
      const Row evenRight = hn::InterleaveLower(d, c, e);
      const Row oddRight = hn::InterleaveUpper(d, c, e);
      store(row, hn::ConcatLowerLower(d, evenRight, even));
      store(row + 1, hn::ConcatLowerLower(d, oddRight, odd));
      store(row + 2, hn::ConcatUpperUpper(d, evenRight, even));
      store(row + 3, hn::ConcatUpperUpper(d, oddRight, odd));
    }
  }
  for (; row < rows; ++row) {
    HWY_ALIGN double line[medianLanes];
    for (std::size_t column = 0; column < medianLanes; ++column) {
      line[column] = columns[column].samples[row];
    }
    store(row, hn::Load(d, line));
  }
  for (; row < medianRows; ++row) hn::Store(hn::Set(d, HUGE_VAL), d, keys + row * medianLanes);
}

HWY_NOINLINE std::size_t medians(const double* samples, std::size_t count, double* out) {
  constexpr std::size_t groups = medianColumns / medianLanes;
  HWY_ALIGN double keys[medianRows * medianColumns];
  RankWindow windows[medianColumns];
  std::size_t sortedTwice = 0;
  for (std::size_t done = 0; done < count;) {
    const std::size_t length = HWY_MIN(count - done, medianColumns * medianSegment);
    const std::size_t segment = (length + medianColumns - 1) / medianColumns;
    const std::size_t rows = medianHistory + segment;
    for (std::size_t column = 0; column < medianColumns; ++column) {
      // The last segments overlap when the length is not a multiple.
      const std::size_t begin = done + HWY_MIN(column * segment, length - segment);
      windows[column].sorted = keys + column / medianLanes * medianTable + column % medianLanes;
      windows[column].samples = samples + begin;
      windows[column].medians = out + begin;
    }
    for (std::size_t group = 0; group < groups; ++group) {
      RankWindow* const columns = windows + group * medianLanes;
      fillKeys(columns, rows, columns->sorted);
      sortColumns(columns->sorted);
      for (std::size_t column = 0; column < medianLanes; ++column) {
        if (!fillWindow(columns[column], rows)) ++sortedTwice;
      }
    }
    // The columns in turn, because each step waits for the one before in the same column.
    for (std::size_t i = 0; i + 1 < segment; ++i) {
      for (RankWindow& window : windows) {
        writeMedian(window, i);
        moveWindow(window, i);
      }
    }
    for (const RankWindow& window : windows) writeMedian(window, segment - 1);
    done += length;
  }
  return sortedTwice;
}

}  // namespace Zephly::offline::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
