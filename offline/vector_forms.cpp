// SPDX-License-Identifier: MIT
// Compiled once for each instruction set: foreach_target.h includes this file again.
#include <offline/vector_forms.h>

#include <atomic>

#if ZEPHLY_VECTORS && (defined(__x86_64__) || defined(__aarch64__))
#define ZEPHLY_HAS_VECTORS 1
#else
#define ZEPHLY_HAS_VECTORS 0
#endif

#if ZEPHLY_HAS_VECTORS
// Few instruction sets, because each adds to the compile time. Highway 1.0 has no SSE2. Intel's
// processors have SSSE3 since 2006, AMD's since 2011; older ones take the scalar forms.
#if defined(__x86_64__)
#define HWY_WANT_SSSE3 1
#define HWY_DISABLED_TARGETS (~(HWY_SSSE3 | HWY_AVX2))
#else
// NEON is a part of 64-bit ARM. Without a choice at run time Highway does not switch the
// cryptographic instructions on by a pragma, which g++ does not apply to constructors.
#define HWY_COMPILE_ONLY_STATIC
#define TOOLCHAIN_MISS_SYS_AUXV_H 1
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
#endif
// Only Highway's headers are used. Its assertions would need its library.
#define HWY_IS_DEBUG_BUILD 0

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "offline/vector_forms.cpp"
#include <hwy/foreach_target.h>
// After foreach_target.h.
#include <hwy/highway.h>
#include <offline/contact_lanes_inl.h>
#include <offline/median_lanes_inl.h>
#include <offline/normalization_lanes_inl.h>
#include <offline/section_lanes_inl.h>

#if HWY_TARGET == HWY_AVX2
#define ZEPHLY_TARGET_NAME "AVX2"
#elif HWY_TARGET == HWY_SSSE3
#define ZEPHLY_TARGET_NAME "SSSE3"
#else
#define ZEPHLY_TARGET_NAME "NEON"
#endif

namespace Zephly::offline::HWY_NAMESPACE {
extern const VectorForms forms;
const VectorForms forms = {.name = ZEPHLY_TARGET_NAME,
                           .finite = finite,
                           .ordinary = ordinary,
                           .finiteFloats = finiteFloats,
                           .medians = medians,
                           .columns = medianLanes,
                           .sortColumns = sortColumns,
                           .normalize = normalize,
                           .maximaToTheEnd = maximaToTheEnd,
                           .respirationSections = respirationSections,
                           .ecgSections = ecgSections,
                           .contacts = contacts};
}  // namespace Zephly::offline::HWY_NAMESPACE

#undef ZEPHLY_TARGET_NAME
#endif

#if !ZEPHLY_HAS_VECTORS || HWY_ONCE

namespace Zephly::offline {

namespace {

// The tables of this processor. Built at the first call.
struct Tables {
  const VectorForms* entries[2] = {};
  std::size_t count = 0;

#if ZEPHLY_HAS_VECTORS
  Tables() {
#if defined(__x86_64__)
    __builtin_cpu_init();
#if HWY_TARGETS & HWY_AVX2
    // What Highway takes for granted beside AVX2.
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
        __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("fma")) {
      add(N_AVX2::forms);
    }
#endif
#if HWY_TARGETS & HWY_SSSE3
    if (__builtin_cpu_supports("ssse3")) add(N_SSSE3::forms);
#endif
#else
    add(HWY_STATIC_DISPATCH(forms));
#endif
  }
  void add(const VectorForms& forms) { entries[count++] = &forms; }
#endif
};

const Tables& tables() {
  static const Tables all;
  return all;
}

std::atomic<const VectorForms*>& chosen() {
  static std::atomic<const VectorForms*> forms = tables().count > 0 ? tables().entries[0] : nullptr;
  return forms;
}

bool flushesSubnormals() {
  const volatile double smallest = 4.9406564584124654e-324;
  return smallest + smallest == 0.0;
}

}  // namespace

std::span<const VectorForms* const> allVectorForms() {
  return std::span(tables().entries).first(tables().count);
}

const VectorForms* vectorForms() {
  return flushesSubnormals() ? nullptr : chosen().load(std::memory_order_relaxed);
}

void useVectorForms(const VectorForms* forms) { chosen() = forms; }

}  // namespace Zephly::offline

#endif
