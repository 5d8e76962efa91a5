// SPDX-License-Identifier: MIT
#include <tools/monitor/canvas.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Zephly::monitor {
namespace {

TEST(CanvasTest, HoldsTheTextThatWasPut) {
  Canvas canvas(10, 2);
  EXPECT_EQ(canvas.put(0, 2, "ECG"), 5U);
  canvas.putRight(1, 10, "end");
  EXPECT_EQ(canvas.plainRow(0), "  ECG");
  EXPECT_EQ(canvas.plainRow(1), "       end");
}

TEST(CanvasTest, TruncatesTextThatDoesNotFit) {
  Canvas canvas(4, 1);
  EXPECT_EQ(canvas.put(0, 2, "long"), 6U);
  EXPECT_EQ(canvas.plainRow(0), "  lo");
  canvas.put(7, 0, "no such row");
  canvas.putRight(0, 3, "wide text");
  EXPECT_EQ(canvas.plainRow(0), "wide");
}

TEST(CanvasTest, OneCharacterIsOneCell) {
  Canvas canvas(4, 1);
  EXPECT_EQ(canvas.put(0, 0, "°⣿─x"), 4U);
  EXPECT_EQ(canvas.plainRow(0), "°⣿─x");
  EXPECT_EQ(cellCount("°⣿─x"), 4U);
}

TEST(CanvasTest, ControlCharactersCannotReachTheTerminal) {
  Canvas canvas(20, 1);
  canvas.put(0, 0, "a\x1b[2J\r\n\x7f\xc2\x9b\x9b\xe2\x82z");
  EXPECT_EQ(canvas.plainRow(0), "a?[2J??????z");
}

TEST(CanvasTest, StylesAreResetAtTheEndOfARow) {
  Canvas canvas(9, 1);
  canvas.put(0, 0, "on", Style::alarm);
  canvas.put(0, 3, "b", Style::bold);
  EXPECT_EQ(canvas.ansiRow(0, Colors::ansi), "\x1b[1;37;41mon\x1b[0m \x1b[1mb\x1b[0m");
}

TEST(CanvasTest, WithoutColorsAnAlarmIsStillReversed) {
  Canvas canvas(4, 1);
  canvas.put(0, 0, "off", Style::alarm);
  EXPECT_EQ(canvas.ansiRow(0, Colors::none), "\x1b[1;7moff\x1b[0m");
  canvas.put(0, 0, "off", Style::ecg);
  EXPECT_EQ(canvas.ansiRow(0, Colors::none), "off");
}

TEST(CanvasTest, AStyledRowIsStyledToItsEnd) {
  Canvas canvas(4, 1);
  canvas.put(0, 0, "a");
  canvas.setRowStyle(0, Style::warning);
  EXPECT_EQ(canvas.ansiRow(0, Colors::none), "\x1b[7ma   \x1b[0m");
}

}  // namespace
}  // namespace Zephly::monitor
