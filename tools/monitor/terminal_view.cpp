// SPDX-License-Identifier: MIT
#include <tools/monitor/terminal_view.h>

#include <capture/text.h>
#include <tools/monitor/trace_renderer.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

namespace Zephly::monitor {

namespace {

constexpr int waveformRate = streamInfo(Stream::ecg).rate;  // respiration has the same

constexpr std::size_t ecgSeconds = 6;
constexpr std::size_t respirationSeconds = 24;
constexpr std::size_t tableRows = 5;

// Rounded to `decimals` places.
std::string decimal(double value, int decimals) {
  std::array<char, 64> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.*f", decimals, value));
  return text.data();
}

// "-" while it is unknown.
std::string rateText(std::optional<double> perSecond) {
  return perSecond ? decimal(*perSecond, 0) : "-";
}

// "72 /min, quality 97 %"; a dash while it is unknown.
std::string vitalsText(const std::optional<double>& rate, double quality) {
  if (!rate) return "- /min";
  return decimal(*rate, 0) + " /min, quality " + decimal(quality * 100, 0) + " %";
}

std::string heartRateText(const std::optional<vitals::Second>& second) {
  return second ? vitalsText(second->heartRate, second->heartRateQuality) : vitalsText({}, 0);
}

std::string breathingRateText(const std::optional<vitals::Second>& second) {
  if (!second) return vitalsText({}, 0);
  const std::string text = vitalsText(second->breathingRate, second->breathingQuality);
  return second->breathingRate && second->breathingDerived ? text + ", from the ECG" : text;
}

// "12 345"
std::string grouped(std::uint64_t count) {
  std::string text = std::to_string(count);
  for (std::size_t end = text.size(); end > 3;) {
    end -= 3;
    text.insert(end, 1, ' ');
  }
  return text;
}

// Lines of at most `width` cells, broken at spaces if possible.
std::vector<std::string> wrapped(std::string_view text, std::size_t width) {
  std::vector<std::string> lines;
  std::string line;
  std::istringstream words{capture::printable(text)};
  words.exceptions(std::ios::badbit);  // otherwise a lack of memory would end the loop below
  for (std::string word; words >> word;) {
    if (!line.empty() && cellCount(line) + 1 + cellCount(word) > width) {
      lines.push_back(std::exchange(line, {}));
    }
    line += (line.empty() ? "" : " ") + word;
  }
  if (!line.empty()) lines.push_back(std::move(line));
  return lines;
}

// Streams with many samples a second are shown with their rate, the others as numbers of reports.
bool isFast(Stream stream) { return streamInfo(stream).rate > 1; }

// "Respiration"
std::string capitalised(std::string_view title) {
  std::string text(title);
  if (text.front() >= 'a' && text.front() <= 'z') text.front() += 'A' - 'a';
  return text;
}

// Which rows belong to what, from the top. Row 0 is the title, row 1 the state.
struct Layout {
  std::size_t ecgTop;
  std::size_t ecgHeight;
  std::size_t respirationTop;
  std::size_t respirationHeight;
  std::size_t tableTop;
  std::size_t messagesTop;
  std::size_t messagesHeight;

  explicit Layout(std::size_t height) {
    // Title, state, two captions, the table and the caption of the messages.
    const std::size_t room = height - (2 + 2 + tableRows + 1);
    messagesHeight = std::min<std::size_t>(room / 4, 10);
    respirationHeight = (room - messagesHeight) * 2 / 5;
    ecgHeight = room - messagesHeight - respirationHeight;
    ecgTop = 2;
    respirationTop = ecgTop + 1 + ecgHeight;
    tableTop = respirationTop + 1 + respirationHeight;
    messagesTop = tableTop + tableRows;
  }
};

class Painter {
 public:
  Painter(Canvas& canvas, const watch::SessionModel& model, const ViewOptions& options)
      : canvas_(canvas), model_(model), options_(options) {}

  void draw() {
    const Layout layout(canvas_.height());
    title();
    state();
    const auto vitals = model_.vitalsAt(options_.now);
    trace(layout.ecgTop, layout.ecgHeight, "ECG", heartRateText(vitals), model_.ecg(), ecgSeconds,
          {-0.2F, 0.4F}, Style::ecg);
    hostLine(layout);
    trace(layout.respirationTop, layout.respirationHeight, "Respiration", breathingRateText(vitals),
          model_.respiration(), respirationSeconds, {0, 1}, Style::respiration);
    streams(layout.tableTop);
    values(layout.tableTop);
    messages(layout);
  }

 private:
  std::string_view glyph(std::string_view unicode, std::string_view ascii) const {
    return options_.unicode ? unicode : ascii;
  }

  void title() {
    std::size_t column = canvas_.put(0, 1, "zephly " + options_.command, Style::bold);
    column = canvas_.put(0, column, glyph(" · ", " - "));
    canvas_.put(0, column, options_.title);
    std::string right = capture::clockText(options_.now);
    if (!options_.pace.empty()) right = options_.pace + "   " + right;
    canvas_.putRight(0, canvas_.width() - 1, "   " + right, Style::bold);
  }

  // One row, not highlighted while there is no fault.
  void state() {
    if (!model_.connected()) {
      const std::string since = model_.linkChanged()        ? "LINK LOST for "
                                : model_.hostLine().empty() ? "searching for "
                                                            : "waiting for ";
      const auto time = options_.now - model_.linkChanged().value_or(StrapTime{});
      const double seconds = std::chrono::duration<double>(time).count();
      canvas_.put(1, 1, since + decimal(seconds, 1) + " s");
    } else {
      canvas_.put(1, 1, std::string(glyph("● ", "")) + "connected", Style::good);
    }
    canvas_.put(1, canvas_.width() / 2 - 6, electrodesText(), electrodesStyle());
    canvas_.putRight(1, canvas_.width() - 1,
                     "reconnects " + std::to_string(model_.reconnections()));
    if (electrodesOff()) {
      canvas_.setRowStyle(1, Style::alarm);
    } else if (!model_.connected()) {
      canvas_.setRowStyle(1, Style::warning);
    }
  }

  // In place of the ECG: the line ends with what to do, which must not be cut off.
  void hostLine(const Layout& layout) {
    if (model_.connected()) return;
    const auto rows = wrapped(model_.hostLine(), canvas_.width() - 4);
    for (std::size_t index = 0; index < std::min(rows.size(), layout.ecgHeight); ++index) {
      const std::size_t row = layout.ecgTop + 1 + index;
      canvas_.fill(row, " ", Style::normal);
      canvas_.put(row, 2, rows[index], Style::bold);
    }
  }

  // Unknown without a link.
  bool electrodesOff() const { return model_.connected() && model_.leadOff().value_or(false); }

  std::string electrodesText() const {
    if (!model_.connected() || !model_.leadOff()) return "electrodes: unknown";
    return electrodesOff() ? "!! ELECTRODES OFF !!"
                           : std::string(glyph("● ", "")) + "electrodes on skin";
  }

  Style electrodesStyle() const {
    return model_.connected() && model_.leadOff() ? Style::good : Style::normal;
  }

  // `rate`: what is computed from the samples, shown beside the name.
  void trace(std::size_t top, std::size_t height, std::string_view name, const std::string& rate,
             const watch::SampleWindow& samples, std::size_t seconds, TraceRange least,
             Style style) {
    TraceOptions options{.width = canvas_.width() - 2,
                         .height = height,
                         .braille = options_.unicode,
                         .least = least};
    const std::size_t columns = options.width * dotColumns(options.braille);
    const std::size_t wanted = seconds * static_cast<std::size_t>(waveformRate);
    options.samplesPerDot = std::max<std::size_t>(1, (wanted + columns - 1) / columns);
    const Trace picture = renderTrace(samples, options);
    canvas_.fill(top, glyph("─", "-"), Style::dim);
    std::size_t column = canvas_.put(top, 1, " " + std::string(name) + " ", Style::bold);
    if (electrodesOff()) column = canvas_.put(top, column, " no contact ", Style::alarm);
    column = canvas_.put(top, column + 1, " " + rate + " ", Style::bold);
    const double shown = static_cast<double>(columns * options.samplesPerDot) / waveformRate;
    const std::string scale = " " + decimal(picture.range.low, 2) +
                              std::string(glyph(" … ", " .. ")) + decimal(picture.range.high, 2) +
                              "   " + decimal(shown, 0) + " s ";
    // On a narrow terminal the rate has priority.
    if (column + cellCount(scale) < canvas_.width()) {
      canvas_.putRight(top, canvas_.width() - 1, scale, Style::dim);
    }
    for (std::size_t row = 0; row < picture.rows.size(); ++row) {
      canvas_.put(top + 1 + row, 1, picture.rows[row], style);
    }
  }

  void streams(std::size_t top) {
    canvas_.fill(top, glyph("─", "-"), Style::dim);
    canvas_.put(top, 1, " samples ", Style::bold);
    canvas_.putRight(top, 22, " per s ", Style::dim);
    canvas_.putRight(top, 34, " received ", Style::dim);
    std::size_t row = top;
    std::string reports;
    for (const Stream stream : allStreams) {
      const StreamInfo& info = streamInfo(stream);
      const std::string received = grouped(model_.received(stream));
      if (!isFast(stream)) {
        reports += (reports.empty() ? "" : ", ") + std::string(info.title) + " " + received;
        continue;
      }
      canvas_.put(++row, 2, capitalised(info.title));
      canvas_.putRight(row, 21, rateText(model_.perSecond(stream, options_.now)), Style::bold);
      canvas_.putRight(row, 33, received);
    }
    canvas_.put(top + 4, 2, "Reports");
    canvas_.put(top + 4, 15, reports);
  }

  void values(std::size_t top) {
    const std::size_t left = 38;
    const std::size_t right = canvas_.width() - 1;
    const auto line = [&](std::size_t row, std::string_view name, const std::string& value) {
      canvas_.put(row, left, name);
      canvas_.putRight(row, std::min<std::size_t>(right, left + 21), value, Style::bold);
    };
    const std::string unit = options_.unicode ? " °C" : " C";
    const auto& temperature = model_.temperature();
    line(top + 1, "Skin", temperature ? decimal(temperature->object, 1) + unit : "-");
    line(top + 2, "Ambient", temperature ? decimal(temperature->ambient, 1) + unit : "-");
    line(top + 3, charging() ? "Charging" : "Battery", batteryText());
    repetitions(top);
  }

  bool charging() const { return model_.battery() && model_.battery()->inCharge; }

  std::string batteryText() const {
    const auto& battery = model_.battery();
    if (!battery) return "-";
    return decimal(battery->soc, 1) + " %";
  }

  // In the row of the other values if it fits, else in the row below.
  void repetitions(std::size_t top) {
    if (canvas_.width() >= 78) {
      for (const Exercise exercise : allExercises) {
        const std::size_t row = top + 1 + static_cast<std::size_t>(exercise);
        canvas_.put(row, 63, std::string(exerciseName(exercise)) + "s");
        canvas_.putRight(row, 77, std::to_string(model_.repetitions().of(exercise)), Style::bold);
      }
      return;
    }
    std::string text;
    for (const Exercise exercise : allExercises) {
      text += text.empty() ? "" : ", ";
      text += std::string(exerciseName(exercise)) + "s " +
              std::to_string(model_.repetitions().of(exercise));
    }
    canvas_.fill(top + 4, " ", Style::normal);
    canvas_.put(top + 4, 2, text);
  }

  void messages(const Layout& layout) {
    canvas_.fill(layout.messagesTop, glyph("─", "-"), Style::dim);
    canvas_.put(layout.messagesTop, 1, " messages ", Style::bold);
    canvas_.putRight(layout.messagesTop, canvas_.width() - 1, " q or Ctrl-C ends ", Style::dim);
    const auto& lines = model_.messages();
    const std::size_t count = std::min(layout.messagesHeight, lines.size());
    for (std::size_t index = 0; index < count; ++index) {
      const auto& line = lines[lines.size() - count + index];
      const std::size_t row = layout.messagesTop + 1 + index;
      canvas_.putRight(row, 8, capture::clockText(line.time), Style::dim);
      canvas_.put(row, 10, line.text);
    }
  }

  Canvas& canvas_;
  const watch::SessionModel& model_;
  const ViewOptions& options_;
};

}  // namespace

void drawSession(Canvas& canvas, const watch::SessionModel& model, const ViewOptions& options) {
  if (canvas.width() < smallestWidth || canvas.height() < smallestHeight) {
    canvas.put(0, 0, "zephly " + options.command + " needs");
    canvas.put(1, 0, "a terminal of at least");
    canvas.put(2, 0,
               std::to_string(smallestWidth) + " x " + std::to_string(smallestHeight) + ", not " +
                   std::to_string(canvas.width()) + " x " + std::to_string(canvas.height()));
    return;
  }
  Painter(canvas, model, options).draw();
}

std::string statusLine(const watch::SessionModel& model, StrapTime now) {
  std::string text = capture::clockText(now);
  text += model.connected() ? "  connected" : "  NOT CONNECTED";
  if (model.connected() && model.leadOff()) {
    text += *model.leadOff() ? "  ELECTRODES OFF" : "  electrodes on skin";
  }
  for (const Stream stream : allStreams) {
    if (!isFast(stream)) continue;
    text += "  " + std::string(streamInfo(stream).name) + " " +
            rateText(model.perSecond(stream, now)) + "/s";
  }
  const auto vitals = model.vitalsAt(now);
  text += "  heart rate " + heartRateText(vitals) + "  breathing " + breathingRateText(vitals);
  for (const Exercise exercise : allExercises) {
    text += "  " + std::string(exerciseName(exercise)) + "s " +
            std::to_string(model.repetitions().of(exercise));
  }
  return text;
}

}  // namespace Zephly::monitor
