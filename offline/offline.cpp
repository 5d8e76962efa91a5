// SPDX-License-Identifier: MIT
#include <offline/offline.h>

#include <offline/ecg_chain.h>
#include <offline/respiration_engine.h>

#include <cstddef>
#include <stdexcept>
#include <string>

namespace Zephly::offline {

namespace {

void requireEqual(const char* what, std::size_t length, std::size_t wanted) {
  if (length == wanted) return;
  throw std::invalid_argument(std::string(what) + ": " + std::to_string(length) + " for " +
                              std::to_string(wanted) + " raw samples");
}

// Overflow does not make too many samples look like enough: `wanted` is the size of an array.
std::size_t samplesOf(std::span<const FrameTime> frames, std::size_t wanted) {
  std::size_t samples = 0;
  for (const FrameTime& frame : frames) {
    if (frame.samples > wanted - samples) {
      throw std::invalid_argument("offline::Respiration: the frames have more than the " +
                                  std::to_string(wanted) + " raw samples");
    }
    samples += frame.samples;
  }
  return samples;
}

}  // namespace

class Ecg::State : public EcgChain {};
class Respiration::State : public RespirationEngine {};

Ecg::Ecg() : state_(std::make_unique<State>()) {}
Ecg::Ecg(const Ecg& other) : state_(std::make_unique<State>(*other.state_)) {}
Ecg& Ecg::operator=(const Ecg& other) {
  *state_ = *other.state_;
  return *this;
}
Ecg::~Ecg() = default;

void Ecg::process(std::span<const float> raw, std::span<float> filtered) {
  requireEqual("offline::Ecg: length of filtered", filtered.size(), raw.size());
  state_->process(raw, filtered);
}

Respiration::Respiration() : state_(std::make_unique<State>()) {}
Respiration::Respiration(const Respiration& other)
    : state_(std::make_unique<State>(*other.state_)) {}
Respiration& Respiration::operator=(const Respiration& other) {
  *state_ = *other.state_;
  return *this;
}
Respiration::~Respiration() = default;

void Respiration::process(std::span<const float> raw, std::span<const FrameTime> frames,
                          std::span<float> filtered, std::span<std::uint8_t> contact) {
  requireEqual("offline::Respiration: length of filtered", filtered.size(), raw.size());
  requireEqual("offline::Respiration: length of contact", contact.size(), raw.size());
  requireEqual("offline::Respiration: samples of the frames", samplesOf(frames, raw.size()),
               raw.size());
  state_->process(raw, frames, filtered, contact);
}

}  // namespace Zephly::offline
