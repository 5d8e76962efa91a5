// SPDX-License-Identifier: MIT
#include <hosts/foundation/data.h>
#include <hosts/foundation/error.h>
#include <hosts/foundation/one_line.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

using Zephly::hosts::Data;
using Zephly::hosts::Error;
using Zephly::hosts::oneLine;

TEST(DataTest, CopiesNoMoreThanItHas) {
  const auto data = Data::of({1, 2, 3});
  std::array<std::uint8_t, 5> buffer{9, 9, 9, 9, 9};
  data->getBytes(buffer.data(), buffer.size());
  EXPECT_EQ(data->length(), 3U);
  EXPECT_EQ(buffer, (std::array<std::uint8_t, 5>{1, 2, 3, 9, 9}));
}

TEST(DataTest, CopiesNoMoreThanRequested) {
  const auto data = Data::of({1, 2, 3});
  std::array<std::uint8_t, 3> buffer{9, 9, 9};
  data->getBytes(buffer.data(), 2);
  EXPECT_EQ(buffer, (std::array<std::uint8_t, 3>{1, 2, 9}));
}

TEST(DataTest, MayBeEmpty) {
  const auto data = Data::of({});
  std::uint8_t byte = 9;
  data->getBytes(&byte, 1);
  EXPECT_EQ(data->length(), 0U);
  EXPECT_EQ(byte, 9);
}

TEST(ErrorTest, IsItsText) {
  EXPECT_EQ(Error::of("The device is gone.")->localizedDescription(), "The device is gone.");
}

TEST(ErrorTest, IsOneLine) {
  EXPECT_EQ(Error::of("Out of\r\nreach.\n")->localizedDescription(), "Out of reach.");
}

TEST(OneLineTest, LeavesOtherTextUnchanged) {
  for (const char* text :
       {"", " two  blanks ", "Zürich, ł, А, €, 🫀", "\xC2", "\xE2\x80", "\xFF"}) {
    EXPECT_EQ(oneLine(text), text);
  }
}

TEST(OneLineTest, ReplacesARunOfControlCharactersByOneBlank) {
  EXPECT_EQ(oneLine("a\n\n\t\x1B\x7F\r\nb"), "a b");
  EXPECT_EQ(oneLine(std::string("a\0b", 3)), "a b");
}

TEST(OneLineTest, AddsNoSecondBlankBesideARun) {
  EXPECT_EQ(oneLine("a \x1B[1mb\n c \n d"), "a [1mb c  d");
}

TEST(OneLineTest, RemovesControlCharactersAtTheEnds) {
  EXPECT_EQ(oneLine("\n\ta\n"), "a");
  EXPECT_EQ(oneLine("\n\u0085\u2028"), "");
}

TEST(OneLineTest, RecognisesEveryControlCharacterAndLineBreakOfUnicode) {
  for (unsigned code = 0; code <= 0xFF; ++code) {
    const std::string text = code < 0x80 ? std::string(1, static_cast<char>(code))
                                         : std::string{static_cast<char>(0xC0 | code >> 6),
                                                       static_cast<char>(0x80 | (code & 0x3F))};
    const bool control = code < 0x20 || (code >= 0x7F && code <= 0x9F);
    EXPECT_EQ(oneLine("a" + text + "b"), control ? "a b" : "a" + text + "b") << code;
  }
  EXPECT_EQ(oneLine("a\u2027b\u2028c\u2029d\u202Ae"), "a\u2027b c d\u202Ae");
}

}  // namespace
