// SPDX-License-Identifier: MIT
#include <tools/view/message_feed.h>

#include <zephly/protocol/strap_time.h>

#include <utility>
#include <variant>

namespace Zephly::view {

MessageFeed::MessageFeed(Send send) : send_(std::move(send)) {}

void MessageFeed::take(const watch::Event& event) {
  model_.take(event);
  std::visit([&](const auto& what) { note(event.time, what); }, event.what);
  auto text = eventText(event);
  if (!text) return;
  // Samples from before the event are sent before it.
  sendSamples(event.time);
  events_.push_back(textMessage(Message::Kind::other, std::move(*text)));
  if (events_.size() > keptEvents) events_.pop_front();
  send_(events_.back());
}

void MessageFeed::note(StrapTime time, const watch::Connected& /*connected*/) {
  interrupt();
  vitals_.beginLink();
  sendState(time);
}

void MessageFeed::note(StrapTime time, const watch::Disconnected& /*disconnected*/) {
  interrupt();
  sendState(time);
}

void MessageFeed::note(StrapTime time, const watch::LeadOff& /*leadOff*/) { sendState(time); }

void MessageFeed::note(StrapTime time, const watch::Temperature& temperature) {
  body_.take(time, temperature.object, temperature.ambient);
  temperature_ = TemperatureReading{temperature.object, temperature.ambient, body_.celsius(),
                                    body_.readings(), time};
}

void MessageFeed::note(StrapTime time, const watch::EcgSample& sample) {
  append(Trace::ecg, time, std::array{sample.value});
  vitals_.sample(time, track(Trace::ecg).newest());
  std::array filtered{sample.value};
  ecgChain_.process(filtered, filtered);
  append(Trace::filteredEcg, time, filtered);
}

void MessageFeed::note(StrapTime time, const watch::RespirationSample& sample) {
  append(Trace::respiration, time, std::array{sample.value});
}

void MessageFeed::note(StrapTime time, const watch::MotionSample& sample) {
  append(Trace::motion, time, std::array{sample.highPassed, sample.displacement});
}

void MessageFeed::append(Trace trace, StrapTime time, std::span<const float> sample) {
  track(trace).append(time, sample);
  // At a high speed many samples arrive between two ticks.
  if (track(trace).pending() >= SampleTrack::largestBatch) sendSamples(time);
}

void MessageFeed::interrupt() {
  for (SampleTrack& track : tracks_) track.interrupt();
}

void MessageFeed::sendSamples(StrapTime now) {
  for (SampleTrack& track : tracks_) {
    for (const Message& message : track.take(now)) send_(message);
  }
  if (const auto message = vitals_.take(now)) send_(*message);
}

// Samples from before the change are sent before it.
void MessageFeed::sendState(StrapTime now) {
  sendSamples(now);
  send_(state(now));
}

Message MessageFeed::state(StrapTime now) const {
  return textMessage(Message::Kind::state, stateText({.model = model_,
                                                      .now = ended_.value_or(now),
                                                      .temperature = temperature_,
                                                      .ended = ended_.has_value()}));
}

void MessageFeed::tick(StrapTime now) {
  sendSamples(ended_.value_or(now));
  if (++ticks_ % ticksPerState == 0) send_(state(now));
}

void MessageFeed::end(StrapTime now) {
  if (ended_) return;
  ended_ = now;
  sendState(now);
}

std::vector<Message> MessageFeed::greeting(const Greeting& hello) const {
  std::vector<Message> messages = {textMessage(Message::Kind::other, helloText(hello)),
                                   state(hello.now)};
  for (const SampleTrack& track : tracks_) {
    for (Message& message : track.kept()) messages.push_back(std::move(message));
  }
  if (auto message = vitals_.kept()) messages.push_back(std::move(*message));
  messages.insert(messages.end(), events_.begin(), events_.end());
  return messages;
}

}  // namespace Zephly::view
