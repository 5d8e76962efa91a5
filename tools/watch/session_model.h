// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The state of a session, from its events so far, as the views show it.
///
///   SessionModel model;
///   model.take(event);            // every event, in order
///   model.received(Stream::ecg);  // samples
///
/// Holds a few seconds of both waveforms and the last messages; everything else is the latest value
/// or a count.

#include <tools/watch/arrival_meter.h>
#include <tools/watch/event.h>
#include <tools/watch/gap_meter.h>
#include <tools/watch/rate_meter.h>
#include <tools/watch/sample_window.h>
#include <tools/watch/vitals_counts.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::watch {

class SessionModel {
 public:
  static constexpr std::size_t waveformSeconds = 30;
  static constexpr std::size_t keptMessages = 50;
  static constexpr std::size_t keptLinkLosses = 100;

  struct Message {
    StrapTime time;
    std::string text;
  };

  struct LinkLoss {
    StrapTime time;
    std::optional<std::string> reason;  ///< the kit's text; empty when there was no error
    std::optional<StrapTime> recovery;  ///< until the next connection; empty: none yet
  };

  SessionModel();

  void take(const Event& event);

  bool connected() const { return connected_; }
  /// Time of the latest connection or loss; empty before the first connection.
  std::optional<StrapTime> linkChanged() const { return linkChanged_; }
  std::uint64_t connections() const { return connections_; }
  std::uint64_t disconnections() const { return disconnections_; }
  /// Connections after the first.
  std::uint64_t reconnections() const { return connections_ > 0 ? connections_ - 1 : 0; }
  /// The last ones, oldest first.
  const std::deque<LinkLoss>& linkLosses() const { return linkLosses_; }
  /// The latest status line of the host; empty before the first one.
  const std::string& hostLine() const { return hostLine_; }

  /// True: the electrodes are off. Empty before the first report.
  std::optional<bool> leadOff() const { return leadOff_; }
  std::uint64_t leadOffReports() const { return leadOffReports_; }

  const std::optional<Temperature>& temperature() const { return temperature_; }
  const std::optional<BatteryStatus>& battery() const { return battery_; }
  const Repetitions& repetitions() const { return repetitions_; }

  /// A second of vitals that is older than this says nothing about the present.
  static constexpr StrapTime vitalsLifetime = std::chrono::seconds(8);
  /// The latest second of vitals. Empty before the first one, without a link or electrode contact,
  /// and when the link brings no samples.
  std::optional<vitals::Second> vitalsAt(StrapTime now) const;
  /// The latest beat and breath of the link; empty without them.
  const std::optional<vitals::Beat>& beat() const { return beat_; }
  const std::optional<vitals::Breath>& breath() const { return breath_; }
  /// Beats, breaths and rates since the session began.
  const VitalsCounts& vitals() const { return vitals_; }

  /// Samples.
  std::uint64_t received(Stream stream) const;
  /// The same per second, see RateMeter. Always empty for a stream without a rate, the battery.
  std::optional<double> perSecond(Stream stream, StrapTime now) const;

  const ArrivalMeter& arrivals(Stream stream) const;
  const GapMeter& gaps(Stream stream) const;

  const SampleWindow& ecg() const { return ecg_; }
  const SampleWindow& respiration() const { return respiration_; }

  /// For people, oldest first: the link, the electrodes, what failed, and the lines of the host.
  const std::deque<Message>& messages() const { return messages_; }

  /// The events that have never arrived, by their names in JSON and in a fixed order. `leadoff
  /// true` and `leadoff false` count separately.
  std::vector<std::string> neverArrived() const;

 private:
  void note(StrapTime time, const Connected& connected);
  void note(StrapTime time, const Disconnected& disconnected);
  void note(StrapTime time, const LeadOff& leadOff);
  void note(StrapTime time, const Temperature& temperature);
  void note(StrapTime time, const Battery& battery);
  void note(StrapTime time, const EcgSample& sample);
  void note(StrapTime time, const RespirationSample& sample);
  void note(StrapTime time, const Repetition& repetition);
  void note(StrapTime time, const MotionSample& sample);
  void note(StrapTime time, const Diagnostic& diagnostic);
  void note(StrapTime time, const HostLine& line);
  void note(StrapTime time, const vitals::Beat& beat);
  void note(StrapTime time, const vitals::Breath& breath);
  void note(StrapTime time, const vitals::Second& second);
  void keep(StrapTime time, const std::string& text);
  void explainLinkLoss(StrapTime time, const std::string& reason);
  void count(Stream stream, StrapTime time);

  bool connected_ = false;
  std::optional<StrapTime> linkChanged_;
  std::uint64_t connections_ = 0;
  std::uint64_t disconnections_ = 0;
  std::deque<LinkLoss> linkLosses_;
  std::string hostLine_;
  std::optional<bool> leadOff_;
  std::uint64_t leadOffReports_ = 0;
  bool seenElectrodesOff_ = false;
  bool seenElectrodesOn_ = false;
  std::optional<Temperature> temperature_;
  std::optional<BatteryStatus> battery_;
  Repetitions repetitions_;
  std::optional<vitals::Second> second_;
  StrapTime secondArrived_{};
  std::optional<vitals::Beat> beat_;
  std::optional<vitals::Breath> breath_;
  VitalsCounts vitals_;
  PerStream<std::uint64_t> received_{};
  PerStream<RateMeter> rates_;
  PerStream<ArrivalMeter> arrivals_;
  PerStream<GapMeter> gaps_;
  SampleWindow ecg_;
  SampleWindow respiration_;
  std::deque<Message> messages_;
};

}  // namespace Zephly::watch
