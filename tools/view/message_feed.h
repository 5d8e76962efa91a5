// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Turns the events of a session into the messages of the live page.
///
///   MessageFeed feed([&](const Message& message) { server.send(message); });
///   feed.take(event);                                  // every event, in order
///   feed.tick(source.now());                           // every MessageFeed::interval
///   for (const Message& message : feed.greeting(hello)) sendToNewViewer(message);
///
/// Changes of the link and of contact are sent at once, samples and vitals in batches; at a higher
/// speed of the session the batches are larger, not more frequent. The kit's engine filters the ECG
/// and estimates the body temperature.

#include <tools/view/body_estimate.h>
#include <tools/view/message.h>
#include <tools/view/sample_track.h>
#include <tools/view/texts.h>
#include <tools/view/vitals_track.h>
#include <tools/watch/event.h>
#include <tools/watch/session_model.h>
#include <zephly/protocol/strap_time.h>
#include <offline/ecg_chain.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace Zephly::view {

class MessageFeed {
 public:
  using Send = std::function<void(const Message&)>;

  /// Wall time between calls of tick().
  static constexpr std::chrono::milliseconds interval{33};
  /// The state is sent with every such tick: five times a second.
  static constexpr int ticksPerState = 6;
  /// Events in the greeting.
  static constexpr std::size_t keptEvents = 100;

  /// `send` gets every message, in order.
  explicit MessageFeed(Send send);

  void take(const watch::Event& event);
  /// Sends the samples and vitals since the last call. `now` is the session's time.
  void tick(StrapTime now);
  /// The source has ended at `now`; sends the last samples and the state.
  void end(StrapTime now);
  bool ended() const { return ended_.has_value(); }

  /// The first messages for a new viewer: hello, the state, samples, vitals and events.
  std::vector<Message> greeting(const Greeting& hello) const;

  const watch::SessionModel& model() const { return model_; }

 private:
  template <class What>
  void note(StrapTime /*time*/, const What& /*what*/) {}
  void note(StrapTime time, const watch::Connected& connected);
  void note(StrapTime time, const watch::Disconnected& disconnected);
  void note(StrapTime time, const watch::LeadOff& leadOff);
  void note(StrapTime time, const watch::Temperature& temperature);
  void note(StrapTime time, const watch::EcgSample& sample);
  void note(StrapTime time, const watch::RespirationSample& sample);
  void note(StrapTime time, const watch::MotionSample& sample);
  void note(StrapTime /*time*/, const vitals::Beat& beat) { vitals_.add(beat); }
  void note(StrapTime /*time*/, const vitals::Breath& breath) { vitals_.add(breath); }
  void note(StrapTime /*time*/, const vitals::Second& second) { vitals_.add(second); }

  SampleTrack& track(Trace trace) { return tracks_[static_cast<std::size_t>(trace)]; }
  void append(Trace trace, StrapTime time, std::span<const float> sample);
  void interrupt();
  void sendSamples(StrapTime now);
  void sendState(StrapTime now);
  Message state(StrapTime now) const;

  Send send_;
  watch::SessionModel model_;
  offline::EcgChain ecgChain_;
  std::array<SampleTrack, allTraces.size()> tracks_{
      SampleTrack(Trace::ecg), SampleTrack(Trace::filteredEcg), SampleTrack(Trace::respiration),
      SampleTrack(Trace::motion)};
  VitalsTrack vitals_;
  BodyEstimate body_;
  std::optional<TemperatureReading> temperature_;
  std::deque<Message> events_;
  std::optional<StrapTime> ended_;
  int ticks_ = 0;
};

}  // namespace Zephly::view
