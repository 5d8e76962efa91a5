// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Marks the symbols that a shared library of this kit exports. All others are hidden and may
/// change without notice.
///
///     class ZEPHLY_EXPORT Filter { ... };
///     ZEPHLY_EXPORT std::ostream& console();
///
/// On a class it covers the member functions, the virtual table and the type information, so that a
/// class may be derived from, cast to and caught on both sides. In a static library it changes
/// nothing.

/// Part of the library's interface.
#define ZEPHLY_EXPORT [[gnu::visibility("default")]]
