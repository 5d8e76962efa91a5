// SPDX-License-Identifier: MIT
#include <tools/monitor/terminal_view.h>

#include <tests/support/long_run.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/strap_time.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>

namespace Zephly::monitor {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class TerminalViewTest : public testing::Test {
 protected:
  template <class What>
  void take(StrapTime time, What what) {
    model_.take(watch::Event{time, what});
  }

  void fillModel() {
    take(0s, watch::Connected{});
    take(0s, watch::LeadOff{false});
    for (int frame = 0; frame < 500; ++frame) {
      const StrapTime time = frame * 12ms;
      for (int sample = 0; sample < 6; ++sample) {
        const auto phase = static_cast<float>(frame * 6 + sample) * 0.02F;
        take(time, watch::EcgSample{std::sin(phase)});
        take(time, watch::RespirationSample{0.5F + 0.4F * std::sin(phase * 0.1F)});
      }
    }
    take(6s, watch::Temperature{33.14F, 22.58F, 0});
    take(6s, watch::Battery{{73.8F, false}});
    take(6s, watch::Repetition{Exercise::pushUp});
    take(6s, watch::Diagnostic{"<CBCharacteristic: 0x1>"});
    take(6s,
         watch::Diagnostic{"didFailToConnectPeripheral", std::nullopt, "the connection failed"});
  }

  Canvas canvasOf(std::size_t width, std::size_t height) const {
    Canvas canvas(width, height);
    drawSession(canvas, model_, options_);
    return canvas;
  }

  std::string textOf(std::size_t width, std::size_t height) const {
    const Canvas canvas = canvasOf(width, height);
    std::string text;
    for (std::size_t row = 0; row < height; ++row) text += canvas.plainRow(row) + "\n";
    return text;
  }

  // The row of the state, as the terminal gets it.
  std::string stateRow() const { return canvasOf(80, 24).ansiRow(1, Colors::ansi); }

  watch::SessionModel model_;
  ViewOptions options_{.now = 6s, .title = "simulated strap, seed 7", .pace = "", .unicode = true};
};

constexpr const char* alarm = "\x1b[1;37;41m";
constexpr const char* warning = "\x1b[1;30;43m";

TEST_F(TerminalViewTest, ShowsEverythingInOrder) {
  fillModel();
  const std::string text = textOf(80, 24);
  EXPECT_THAT(text, StartsWith(" zephly monitor · simulated strap, seed 7"));
  EXPECT_THAT(text, AllOf(HasSubstr("0:06\n"), HasSubstr("● connected"),
                          HasSubstr("● electrodes on skin"), HasSubstr("reconnects 0")));
  EXPECT_THAT(text, AllOf(HasSubstr("ECG             500       3 000     Skin          33.1 °C"),
                          HasSubstr("Respiration     500       3 000     Ambient       22.6 °C"),
                          HasSubstr("Battery        73.8 %"), HasSubstr("push-ups     1"),
                          HasSubstr("sit-ups      0"), HasSubstr("jumps        0")));
  EXPECT_THAT(text, HasSubstr("    0:06  the connection failed"));
  EXPECT_THAT(text, Not(HasSubstr("CBCharacteristic")));
  EXPECT_THAT(text, HasSubstr("-1.00 … 1.00   6 s"));
  EXPECT_THAT(text, HasSubstr("0.00 … 1.00   24 s"));
}

TEST_F(TerminalViewTest, TracesReachBothEdgesOfTheirRange) {
  fillModel();
  const Canvas canvas = canvasOf(80, 24);
  // Rows 3 to 9 hold the ECG, a sine that fills its range of -1 to 1.
  EXPECT_NE(canvas.plainRow(3), "");
  EXPECT_NE(canvas.plainRow(9), "");
}

TEST_F(TerminalViewTest, ShowsLostElectrodesProminently) {
  fillModel();
  EXPECT_THAT(stateRow(), AllOf(Not(HasSubstr(alarm)), Not(HasSubstr(warning))));
  take(6s, watch::LeadOff{true});
  EXPECT_THAT(stateRow(), AllOf(StartsWith(alarm), HasSubstr("!! ELECTRODES OFF !!")));
  EXPECT_THAT(textOf(80, 24),
              AllOf(HasSubstr("ECG  no contact"), HasSubstr("Respiration  no contact"),
                    Not(HasSubstr("electrodes on skin"))));
}

TEST_F(TerminalViewTest, ALostLinkIsMarkedAndTimed) {
  fillModel();
  take(6s, watch::Disconnected{});
  options_.now = 8500ms;
  EXPECT_THAT(stateRow(), AllOf(StartsWith(warning), HasSubstr("LINK LOST for 2.5 s"),
                                HasSubstr("electrodes: unknown")));
  take(9s, watch::Connected{});
  EXPECT_THAT(textOf(80, 24), AllOf(HasSubstr("● connected"), HasSubstr("reconnects 1")));
}

TEST_F(TerminalViewTest, ShowsScanningBeforeTheFirstConnection) {
  options_.now = 1500ms;
  EXPECT_THAT(stateRow(), AllOf(StartsWith(warning), HasSubstr("searching for 1.5 s")));
  EXPECT_THAT(textOf(80, 24),
              AllOf(HasSubstr("Skin                -"), HasSubstr("Battery             -")));
}

TEST_F(TerminalViewTest, ShowsTheHostLineCompletelyAtEveryWidth) {
  take(1s, watch::HostLine{
               "Bluetooth: the service org.bluez is not there (The name is not activatable). "
               "Install and start it with: sudo apt install bluez; sudo systemctl enable --now "
               "bluetooth"});
  EXPECT_THAT(stateRow(), AllOf(StartsWith(warning), HasSubstr("waiting for 6.0 s")));
  const Canvas wide = canvasOf(100, 24);
  EXPECT_THAT(wide.ansiRow(3, Colors::ansi), StartsWith("  \x1b[1mBluetooth: the service"));
  for (std::size_t width = smallestWidth; width <= 200; width += 7) {
    const Canvas canvas = canvasOf(width, smallestHeight);
    std::string words;
    for (std::size_t row = 3; row < 8; ++row) words += canvas.plainRow(row) + " ";
    words.erase(std::unique(words.begin(), words.end(),
                            [](char a, char b) { return a == ' ' && b == ' '; }),
                words.end());
    ASSERT_THAT(words, StartsWith(" Bluetooth: the service org.bluez is not there (The name is not "
                                  "activatable). Install and start it with: sudo apt install "
                                  "bluez; sudo systemctl enable --now bluetooth "))
        << width;
  }
}

TEST_F(TerminalViewTest, TruncatesAWordTooLongForTheHostLine) {
  take(1s, watch::HostLine{std::string(300, 'x') + " end"});
  const Canvas canvas = canvasOf(60, 20);
  EXPECT_EQ(canvas.plainRow(3), "  " + std::string(58, 'x'));
  EXPECT_EQ(canvas.plainRow(4), "  end");
}

TEST_F(TerminalViewTest, TracesHavePriorityOverTheHostLine) {
  take(1s, watch::HostLine{"Bluetooth: adapter hci0 is ready."});
  EXPECT_THAT(canvasOf(80, 24).plainRow(3), HasSubstr("hci0 is ready"));
  fillModel();
  EXPECT_THAT(canvasOf(80, 24).plainRow(3), Not(HasSubstr("hci0")));
  take(6s, watch::HostLine{"Bluetooth: no adapter."});
  take(6s, watch::Disconnected{});
  EXPECT_THAT(canvasOf(80, 24).plainRow(3), HasSubstr("no adapter"));
}

// A second with both rates, the breathing derived from the ECG.
constexpr vitals::Second answered{.time = 5s,
                                  .heartRate = 71.6,
                                  .heartRateQuality = 0.974,
                                  .breathingRate = 14.2,
                                  .breathingQuality = 0.8,
                                  .breathingDerived = true,
                                  .contact = true};

TEST_F(TerminalViewTest, ShowsTheRatesWithTheirQualityAtEveryWidth) {
  fillModel();
  take(6s, answered);
  for (std::size_t width = smallestWidth; width <= 120; width += 7) {
    ASSERT_THAT(textOf(width, 24), AllOf(HasSubstr(" 72 /min, quality 97 % "),
                                         HasSubstr(" 14 /min, quality 80 %, from the ECG ")))
        << width;
  }
  EXPECT_THAT(textOf(80, 24), HasSubstr("0.00 … 1.00   24 s"));
  EXPECT_THAT(statusLine(model_, 6s), HasSubstr("heart rate 72 /min, quality 97 %  "
                                                "breathing 14 /min, quality 80 %, from the ECG"));
  vitals::Second measured = answered;
  measured.breathingDerived = false;
  take(6s, measured);
  EXPECT_THAT(textOf(80, 24), Not(HasSubstr("from the ECG")));
}

TEST_F(TerminalViewTest, ARateThatIsUnknownIsADash) {
  fillModel();
  const auto dashes = AllOf(HasSubstr("ECG ─ - /min ─"), HasSubstr("Respiration ─ - /min ─"));
  EXPECT_THAT(textOf(80, 24), dashes);
  take(6s, vitals::Second{.time = 5s,
                          .heartRate = {},
                          .heartRateQuality = 0.3,
                          .breathingRate = {},
                          .breathingDerived = true,
                          .contact = {}});
  EXPECT_THAT(textOf(80, 24), AllOf(dashes, Not(HasSubstr("from the ECG"))));
}

TEST_F(TerminalViewTest, TheRatesVanishWithTheContactAndWithTheLink) {
  fillModel();
  take(6s, answered);
  take(6s, watch::LeadOff{true});
  EXPECT_THAT(textOf(80, 24), AllOf(HasSubstr("ECG  no contact ─ - /min ─"),
                                    HasSubstr("Respiration  no contact ─ - /min ─")));
  take(6s, watch::LeadOff{false});
  take(6s, answered);
  EXPECT_THAT(textOf(80, 24), HasSubstr("72 /min"));
  take(6s, watch::Disconnected{});
  EXPECT_THAT(textOf(80, 24), AllOf(Not(HasSubstr("72 /min")), HasSubstr("Respiration ─ - /min")));
}

TEST_F(TerminalViewTest, AnOldRateVanishes) {
  fillModel();
  take(6s, answered);
  options_.now = 6s + watch::SessionModel::vitalsLifetime + 1ms;
  EXPECT_THAT(textOf(80, 24), Not(HasSubstr("72 /min")));
}

TEST_F(TerminalViewTest, ShowsCharging) {
  take(1s, watch::Battery{{50, true}});
  EXPECT_THAT(textOf(80, 24), HasSubstr("Charging       50.0 %"));
}

TEST_F(TerminalViewTest, ShowsTheSpeedBesideTheTime) {
  options_.pace = "speed 10";
  EXPECT_THAT(textOf(80, 24), HasSubstr("speed 10   0:06\n"));
}

TEST_F(TerminalViewTest, FitsEverySizeFromTheSmallestOn) {
  fillModel();
  for (std::size_t width = smallestWidth; width <= 200; width += 7) {
    for (std::size_t height = smallestHeight; height <= 70; height += longRun<std::size_t>(3, 12)) {
      const std::string text = textOf(width, height);
      ASSERT_THAT(text, AllOf(HasSubstr("connected "), HasSubstr(" ● electrodes on skin "),
                              HasSubstr(" reconnects 0\n"), HasSubstr("Battery"),
                              HasSubstr("push-ups"), HasSubstr("the connection failed")))
          << width << " x " << height;
    }
  }
}

TEST_F(TerminalViewTest, ReportsATerminalThatIsTooSmall) {
  EXPECT_THAT(textOf(59, 20), HasSubstr("60 x 20, not 59 x 20"));
  EXPECT_THAT(textOf(60, 19), HasSubstr("60 x 20, not 60 x 19"));
  for (std::size_t size = 1; size < 20; ++size) canvasOf(size, size);
}

TEST_F(TerminalViewTest, UsesPlainAsciiWithoutUtf8) {
  fillModel();
  options_.unicode = false;
  const std::string text = textOf(80, 24);
  EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char character) {
    return static_cast<unsigned char>(character) < 0x80;
  })) << text;
  EXPECT_THAT(text, AllOf(HasSubstr("connected"), HasSubstr("33.1 C"), HasSubstr("|")));
}

TEST_F(TerminalViewTest, MessagesCannotControlTheTerminal) {
  take(1s, watch::HostLine{"\x1b[2Jgone"});
  EXPECT_THAT(textOf(80, 24), HasSubstr("?[2Jgone"));
}

TEST_F(TerminalViewTest, WritesOneLineOnTerminalsWithoutAScreen) {
  EXPECT_EQ(statusLine(model_, 0s),
            "0:00  NOT CONNECTED  ecg -/s  respiration -/s  motion -/s  "
            "heart rate - /min  breathing - /min  push-ups 0  sit-ups 0  jumps 0");
  fillModel();
  EXPECT_EQ(statusLine(model_, 6s),
            "0:06  connected  electrodes on skin  ecg 500/s  "
            "respiration 500/s  motion 0/s  heart rate - /min  breathing - /min  "
            "push-ups 1  sit-ups 0  jumps 0");
  take(6s, watch::LeadOff{true});
  EXPECT_THAT(statusLine(model_, 6s), HasSubstr("ELECTRODES OFF"));
}

}  // namespace
}  // namespace Zephly::monitor
