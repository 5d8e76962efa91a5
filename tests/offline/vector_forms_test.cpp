// SPDX-License-Identifier: MIT
#include <offline/vector_forms.h>

#include <tests/offline/each_form.h>
#include <tests/support/random_floats.h>
#include <tests/support/special_floats.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace Zephly::offline {
namespace {

TEST(VectorFormsTest, AreThoseOfThisBuild) {
  if (allVectorForms().empty()) {
    EXPECT_EQ(vectorForms(), nullptr);
  } else {
    EXPECT_EQ(vectorForms(), allVectorForms().front());
  }
#if !ZEPHLY_VECTORS
  EXPECT_TRUE(allVectorForms().empty());
#elif defined(__aarch64__)
  EXPECT_FALSE(allVectorForms().empty());
#elif defined(__x86_64__)
  const auto has = [](const char* name) {
    for (const VectorForms* forms : allVectorForms()) {
      if (forms->name == std::string_view(name)) return true;
    }
    return false;
  };
  EXPECT_EQ(has("SSSE3"), __builtin_cpu_supports("ssse3") != 0);
  EXPECT_EQ(has("AVX2"), __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"));
#endif
}

TEST(VectorFormsTest, CanBeChosen) {
  int forms = 0;
  withEachForm([&] { ++forms; });
  EXPECT_EQ(forms, 1 + static_cast<int>(allVectorForms().size()));
  useVectorForms(nullptr);
  EXPECT_EQ(vectorForms(), nullptr);
  if (!allVectorForms().empty()) useVectorForms(allVectorForms().front());
}

// A form that took good samples for special ones would be right, but slow.
TEST(VectorFormsTest, KnowSpecialSamples) {
  for (const VectorForms* forms : allVectorForms()) {
    SCOPED_TRACE(forms->name);
    for (std::size_t count = 0; count < 20; ++count) {
      SCOPED_TRACE(count);
      std::vector<double> samples(count, 1e308);
      std::vector<float> floats(count, 3e38F);
      EXPECT_TRUE(forms->finite(samples.data(), count));
      EXPECT_TRUE(forms->ordinary(samples.data(), count));
      EXPECT_TRUE(forms->finiteFloats(floats.data(), count));
      for (std::size_t place = 0; place < count; ++place) {
        samples[place] = -0.0;
        EXPECT_TRUE(forms->finite(samples.data(), count));
        EXPECT_FALSE(forms->ordinary(samples.data(), count)) << place;
        for (const float special : {infinity, -infinity, notANumber}) {
          samples[place] = static_cast<double>(special);
          floats[place] = special;
          EXPECT_FALSE(forms->finite(samples.data(), count)) << place;
          EXPECT_FALSE(forms->ordinary(samples.data(), count)) << place;
          EXPECT_FALSE(forms->finiteFloats(floats.data(), count)) << place;
        }
        samples[place] = place % 2 == 0 ? 0.0 : -4e-324;
        floats[place] = place % 2 == 0 ? -0.0F : 1e-44F;
      }
      EXPECT_TRUE(forms->ordinary(samples.data(), count));
      EXPECT_TRUE(forms->finiteFloats(floats.data(), count));
    }
  }
}

TEST(VectorFormsTest, SortColumns) {
  constexpr std::size_t rows = 1024;
  for (const VectorForms* forms : allVectorForms()) {
    SCOPED_TRACE(forms->name);
    RandomFloats random(1);
    alignas(32) std::array<double, rows * 4> keys;
    for (double& key : keys) key = static_cast<double>(random.within(1));
    std::vector<std::vector<double>> expected(forms->columns);
    for (std::size_t i = 0; i < rows * forms->columns; ++i) {
      expected[i % forms->columns].push_back(keys[i]);
    }
    forms->sortColumns(keys.data());
    for (std::size_t column = 0; column < forms->columns; ++column) {
      std::sort(expected[column].begin(), expected[column].end());
      for (std::size_t row = 0; row < rows; ++row) {
        ASSERT_EQ(keys[row * forms->columns + column], expected[column][row]) << row;
      }
    }
  }
}

// Noise is in order after the first sort; samples that differ by less than a key shows are not.
TEST(VectorFormsTest, SortFewSegmentsTwice) {
  RandomFloats random(2);
  std::vector<double> noise;
  std::vector<double> close;
  while (noise.size() < 299 + 2'900) {
    noise.push_back(static_cast<double>(random.within(1)));
    close.push_back(1.0 + static_cast<double>(random.below(1'000)) * 0x1p-52);
  }
  for (const VectorForms* forms : allVectorForms()) {
    SCOPED_TRACE(forms->name);
    for (const std::size_t count : {1U, 2U, 3U, 1'000U, 2'897U, 2'900U}) {
      std::vector<double> medians(count);
      EXPECT_EQ(forms->medians(noise.data(), count, medians.data()), 0U) << count;
      EXPECT_EQ(forms->medians(close.data(), count, medians.data()), 4U) << count;
    }
  }
}

// In arrays of their own, so that the sanitizers see an access beyond them.
TEST(VectorFormsTest, FindContactInAnyNumberOfSamples) {
  for (const VectorForms* forms : allVectorForms()) {
    SCOPED_TRACE(forms->name);
    for (const std::size_t count : {64U, 65U, 71U, 100U, 1024U, 1087U, 1088U, 1089U, 2100U}) {
      RandomFloats random(static_cast<std::uint32_t>(count));
      std::vector<float> samples;
      while (samples.size() < 69 + count) samples.push_back(random.within(0.0055F));
      std::vector<std::uint8_t> contact(count, 2);
      forms->contacts(samples.data(), count, contact.data());
      for (std::size_t i = 0; i < count; ++i) {
        const auto window = std::span(samples).subspan(i, 70);
        const auto [least, most] = std::ranges::minmax(window);
        ASSERT_EQ(contact[i], most - least > 0.01F ? 1 : 0) << count << ", " << i;
      }
    }
  }
}

// Keys that are subnormal would be lost.
TEST(VectorFormsTest, AreNotUsedWhileSubnormalsAreFlushed) {
#if defined(__SSE2__)
  constexpr unsigned flushToZero = 0x8000;
  constexpr unsigned subnormalsAreZero = 0x40;
  const VectorForms* const before = vectorForms();
  for (const unsigned mode : {flushToZero, subnormalsAreZero}) {
    const unsigned control = _mm_getcsr();
    _mm_setcsr(control | mode);
    const VectorForms* const forms = vectorForms();
    _mm_setcsr(control);
    EXPECT_EQ(forms, nullptr) << mode;
    EXPECT_EQ(vectorForms(), before);
  }
#else
  GTEST_SKIP() << "written for x86";
#endif
}

}  // namespace
}  // namespace Zephly::offline
