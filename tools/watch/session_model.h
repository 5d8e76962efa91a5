#pragma once
/// @file
/// What a session has reported so far: all that a view shows.
///
///   SessionModel model;
///   model.take(event);            // every event, in order
///   model.received(Stream::ecg);  // samples
///
/// Holds a few seconds of both waveforms and the last diagnostic lines; everything else is the
/// latest value or a count.

#include <tools/watch/arrival_meter.h>
#include <tools/watch/event.h>
#include <tools/watch/rate_meter.h>
#include <tools/watch/sample_window.h>

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::watch {

class SessionModel {
 public:
  static constexpr std::size_t waveformSeconds = 30;
  static constexpr std::size_t keptDiagnostics = 50;
  static constexpr std::size_t keptLinkLosses = 100;

  struct DiagnosticLine {
    strap::StrapTime time;
    std::string text;
  };

  struct LinkLoss {
    strap::StrapTime time;
    std::optional<std::string> reason;         ///< the kit's text; empty when there was no error
    std::optional<strap::StrapTime> recovery;  ///< until the next connection; empty: none yet
  };

  SessionModel();

  void take(const Event& event);

  bool connected() const { return connected_; }
  /// When the link came or went last; empty before the first connection.
  std::optional<strap::StrapTime> linkChanged() const { return linkChanged_; }
  std::uint64_t connections() const { return connections_; }
  std::uint64_t disconnections() const { return disconnections_; }
  /// Connections after the first.
  std::uint64_t reconnections() const { return connections_ > 0 ? connections_ - 1 : 0; }
  /// The last ones, oldest first.
  const std::deque<LinkLoss>& linkLosses() const { return linkLosses_; }
  /// What the host has said last about itself; empty before it said anything.
  const std::string& hostLine() const { return hostLine_; }

  /// True: the electrodes are off. Empty before the first report.
  std::optional<bool> leadOff() const { return leadOff_; }
  std::uint64_t leadOffReports() const { return leadOffReports_; }

  const std::optional<Temperature>& temperature() const { return temperature_; }
  const std::optional<BatteryStatus>& battery() const { return battery_; }
  const strap::Repetitions& repetitions() const { return repetitions_; }

  /// ECG and respiration: samples; motion, temperature, battery: readings.
  std::uint64_t received(strap::Stream stream) const;
  /// The same per second, averaged over RateMeter::window.
  double perSecond(strap::Stream stream, strap::StrapTime now) const;

  const ArrivalMeter& arrivals(strap::Stream stream) const;

  const SampleWindow& ecg() const { return ecg_; }
  const SampleWindow& respiration() const { return respiration_; }

  /// Lines of the kit and of the host, oldest first.
  const std::deque<DiagnosticLine>& diagnostics() const { return diagnostics_; }

  /// The kinds of callback that have never come, by name, in a fixed order.
  std::vector<std::string> neverArrived() const;

 private:
  void note(strap::StrapTime time, const Connected& connected);
  void note(strap::StrapTime time, const Disconnected& disconnected);
  void note(strap::StrapTime time, const LeadOff& leadOff);
  void note(strap::StrapTime time, const Temperature& temperature);
  void note(strap::StrapTime time, const Battery& battery);
  void note(strap::StrapTime time, const EcgSample& sample);
  void note(strap::StrapTime time, const RespirationSample& sample);
  void note(strap::StrapTime time, const Repetition& repetition);
  void note(strap::StrapTime time, const MotionSample& sample);
  void note(strap::StrapTime time, const Diagnostic& diagnostic);
  void note(strap::StrapTime time, const HostLine& line);
  void keep(strap::StrapTime time, const std::string& text);
  void explainLinkLoss(std::string_view diagnostic);
  void count(strap::Stream stream, strap::StrapTime time);

  bool connected_ = false;
  std::optional<strap::StrapTime> linkChanged_;
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
  strap::Repetitions repetitions_;
  std::array<std::uint64_t, strap::allStreams.size()> received_{};
  std::array<RateMeter, strap::allStreams.size()> rates_;
  std::array<ArrivalMeter, strap::allStreams.size()> arrivals_;
  SampleWindow ecg_;
  SampleWindow respiration_;
  std::deque<DiagnosticLine> diagnostics_;
};

}  // namespace Zephly::watch
