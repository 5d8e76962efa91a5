// SPDX-License-Identifier: MIT
#include <vitals/vitals.h>

#include <vitals/beat_detector.h>
#include <vitals/breath_detector.h>
#include <vitals/breathing_rate.h>
#include <vitals/derived_breathing.h>
#include <vitals/fixed_queue.h>
#include <vitals/heart_rate.h>
#include <vitals/stream_track.h>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace Zephly::vitals {

namespace {

using namespace std::chrono_literals;

// All beats of a second are known this long after its end.
constexpr Time beatDelay = 500ms;
// How far the streams may be apart.
constexpr Time largestLag = 5s;
static_assert(beatDelay % StreamTrack::step == 0s && largestLag % StreamTrack::step == 0s);

// Room for the seconds of one stream that wait for the other one.
constexpr std::size_t waitingSeconds = 16;
// Room for the breaths of those seconds.
constexpr std::size_t waitingBreaths = 64;
// Breaths of both sources that are nearer than this are the same one.
constexpr Time nearestBreaths = 1s;
// Breathing is taken from the ECG where there are no samples of the impedance, and where it gives
// no rate and its quality, smoothed over 10 s, is below this. Not where it is clear and shows no
// breaths: that is a pause.
constexpr double clearImpedance = 0.5;
constexpr double impedanceSmoothing = 0.1;  // a second

// The results of one second of a stream, from that stream alone: they do not depend on how far the
// other one has come.
struct EcgSecond {
  std::int64_t second = 0;
  double quality = 0;
  HeartRate::Value rate;
  std::optional<BreathingRate::Rate> breathing;
  std::optional<bool> contact;
};

struct RespirationSecond {
  std::int64_t second = 0;
  double quality = 0;
  std::optional<BreathingRate::Rate> rate;
  std::optional<bool> contact;
};
struct FoundBreath {
  std::int64_t second = 0;  // in which it was found
  Breath breath;
};

// How complete a second is. The first sample may come a period late, and the nominal rate be off.
double shareOf(std::int64_t samples, double rate) {
  return std::min(1.0, static_cast<double>(samples) / (rate * 0.98 - 1));
}

double checkedRate(double rate, double lowest, double highest, const char* name) {
  if (rate == 0 || (rate >= lowest && rate <= highest)) return rate;
  throw std::invalid_argument(std::string(name) + " is out of range");
}

// The ECG: the detector finds beats, and a second is closed once all of its beats are known.
class EcgPart {
 public:
  EcgPart(const Settings& settings, Receiver& receiver)
      : track(settings.ecgRate),
        rate_(settings.ecgRate),
        searchBack_(settings.searchBack),
        receiver_(&receiver) {
    makeDetector();
  }

  StreamTrack track;
  FixedQueue<EcgSecond, waitingSeconds> closed;
  FixedQueue<FoundBreath, waitingBreaths> breaths;

  void push(Time time, float value) {
    while (const auto on = track.contactChange(time)) {
      detector_->setContact(*on);
      if (!*on) {
        heartRate_.clear();
        interrupt();
      }
    }
    if (!open_) open_ = secondOf(time);
    ++samples_;
    detector_->push(time, value);
    report();
  }

  // Samples are missing before the next one.
  void interrupt() {
    derived_.interrupt();
    derivedRate_.interrupt();
  }
  // Before the sample at `time`.
  void advance(Time time) {
    if (open_ && time >= endOfSecond(*open_)) end();
    if (ended_ && time >= endOfSecond(ended_->second) + beatDelay) close();
  }
  // No sample of `second` or an earlier one is to come.
  void closeUpTo(std::int64_t second) {
    if (open_ && *open_ <= second) end();
    if (ended_ && ended_->second <= second) close();
  }
  // The earliest second that has not been taken from `closed`.
  std::optional<std::int64_t> earliest() const {
    if (!closed.empty()) return closed.front().second;
    return ended_ ? std::optional(ended_->second) : open_;
  }

  void finish() {
    detector_->finish();
    report();
    closeUpTo(std::numeric_limits<std::int64_t>::max());
    makeDetector();
    if (const auto on = track.contact()) detector_->setContact(*on);
    heartRate_.clear();
    derived_ = {};
    derivedRate_ = {};
    track.restart();
  }

 private:
  void makeDetector() {
    detector_.emplace(rate_, BeatDetector::Options{.searchBack = searchBack_});
  }

  void report() {
    while (const auto beat = detector_->next()) {
      heartRate_.take(*beat);
      derived_.push(*beat);
      receiver_->beat(*beat);
    }
    while (const auto breath = derived_.next()) {
      derivedRate_.add(*breath);
      breaths.push({*open_, *breath});
    }
  }
  void end() {
    if (ended_) close();
    ended_ = EcgSecond{.second = *open_,
                       .quality = detector_->signalQuality() * shareOf(samples_, rate_),
                       .rate = {},
                       .breathing = {},
                       .contact = track.contact()};
    open_.reset();
    samples_ = 0;
  }
  void close() {
    const Time end = endOfSecond(ended_->second);
    ended_->rate = heartRate_.at(end);
    ended_->breathing = derivedRate_.at(end, derived_.signalQuality());
    closed.push(*ended_);
    ended_.reset();
  }

  double rate_;
  bool searchBack_;
  Receiver* receiver_;
  std::optional<BeatDetector> detector_;
  HeartRate heartRate_;
  DerivedBreathing derived_;
  BreathingRate derivedRate_;
  std::optional<std::int64_t> open_;  // the second of the latest sample
  std::int64_t samples_ = 0;          // in it
  std::optional<EcgSecond> ended_;    // its samples are complete, its beats not yet
};

// The impedance: breaths wait until the second is reported in which they were found, because only
// then it is known whether those derived from the ECG take their place.
class RespirationPart {
 public:
  explicit RespirationPart(const Settings& settings)
      : track(settings.respirationRate), rate_(settings.respirationRate) {
    detector_.emplace(rate_);
  }

  StreamTrack track;
  FixedQueue<RespirationSecond, waitingSeconds> closed;
  FixedQueue<FoundBreath, waitingBreaths> breaths;

  void push(Time time, float value) {
    while (const auto on = track.contactChange(time)) {
      detector_->setContact(*on);
      if (!*on) interrupt();
    }
    if (!open_) open_ = secondOf(time);
    ++samples_;
    detector_->push(time, value);
    while (const auto breath = detector_->next()) {
      breathingRate_.add(*breath);
      breaths.push({*open_, *breath});
    }
    while (const auto cycle = detector_->nextCycle()) breathingRate_.add(*cycle);
  }

  // Samples are missing before the next one.
  void interrupt() { breathingRate_.interrupt(); }
  // Before the sample at `time`.
  void advance(Time time) {
    if (open_ && time >= endOfSecond(*open_)) close();
  }
  // No sample of `second` or an earlier one is to come.
  void closeUpTo(std::int64_t second) {
    if (open_ && *open_ <= second) close();
  }
  // The earliest second that has not been taken from `closed`.
  std::optional<std::int64_t> earliest() const {
    return closed.empty() ? open_ : std::optional(closed.front().second);
  }

  void finish() {
    closeUpTo(std::numeric_limits<std::int64_t>::max());
    detector_.emplace(rate_);
    if (const auto on = track.contact()) detector_->setContact(*on);
    breathingRate_ = {};
    track.restart();
  }

 private:
  void close() {
    const double quality = detector_->signalQuality();
    closed.push({.second = *open_,
                 .quality = quality * shareOf(samples_, rate_),
                 .rate = breathingRate_.at(endOfSecond(*open_), quality),
                 .contact = track.contact()});
    open_.reset();
    samples_ = 0;
  }

  double rate_;
  std::optional<BreathDetector> detector_;
  BreathingRate breathingRate_;
  std::optional<std::int64_t> open_;  // the second of the latest sample
  std::int64_t samples_ = 0;          // in it
};

}  // namespace

class Vitals::State {
 public:
  State(const Settings& settings, Receiver& receiver) : receiver_(&receiver) {
    if (checkedRate(settings.ecgRate, 100, 1000, "ecgRate") > 0) ecg_.emplace(settings, receiver);
    if (checkedRate(settings.respirationRate, 10, 1000, "respirationRate") > 0) {
      respiration_.emplace(settings);
    }
  }

  void ecg(Time time, float value) { push(ecg_, time, value); }
  void respiration(Time time, float value) { push(respiration_, time, value); }

  void contact(Time time, bool on) {
    if (ecg_) ecg_->track.changeContact(time, on);
    if (respiration_) respiration_->track.changeContact(time, on);
  }

  void finish() {
    if (ecg_) ecg_->finish();
    if (respiration_) respiration_->finish();
    while (const auto second = earliest()) reportSecond(*second);
    reported_.reset();
    lastBreath_.reset();
  }

 private:
  template <class Part>
  void push(std::optional<Part>& part, Time time, float value) {
    if (!part || !part->track.accepts(time)) return;
    const bool gap = part->track.isGap(time);
    const bool step = part->track.beginsStep(time);
    part->track.pass(time);
    if (step) {
      part->advance(time);
      reportSeconds();
    }
    // After the seconds before the gap have been closed.
    if (gap) part->interrupt();
    part->push(time, value);
  }

  std::optional<std::int64_t> earliest() const {
    std::optional<std::int64_t> first;
    if (ecg_) first = ecg_->earliest();
    if (respiration_) {
      const auto other = respiration_->earliest();
      if (other && (!first || *other < *first)) first = other;
    }
    return first;
  }

  // Whether no sample that is not too late can change the results of the second.
  bool isFinal(std::int64_t second) const {
    const Time end = endOfSecond(second);
    const auto hasPassed = [](const auto& part, Time time) {
      return part && part->track.last() && *part->track.last() >= time;
    };
    const bool ecgKnown = !ecg_ || hasPassed(ecg_, end + beatDelay) ||
                          hasPassed(respiration_, end + beatDelay + largestLag);
    const bool respirationKnown =
        !respiration_ || hasPassed(respiration_, end) || hasPassed(ecg_, end + largestLag);
    return ecgKnown && respirationKnown;
  }

  void reportSeconds() {
    for (auto second = earliest(); second && isFinal(*second); second = earliest()) {
      reportSecond(*second);
    }
  }

  void reportSecond(std::int64_t index) {
    Second second;
    second.time = endOfSecond(index);
    EcgSecond ecg;
    RespirationSecond respiration;
    const bool hasEcg = takeClosed(ecg_, index, ecg);
    const bool hasRespiration = takeClosed(respiration_, index, respiration);
    if (hasEcg) {
      second.ecgQuality = ecg.quality;
      second.heartRate = ecg.rate.perMinute;
      second.heartRateQuality = ecg.rate.quality;
      second.contact = ecg.contact;
    }
    if (hasRespiration) {
      second.respirationQuality = respiration.quality;
      second.contact = respiration.contact;
    }
    // Seconds that are not there separate what is before and after them.
    if (!reported_ || index != *reported_ + 1) impedance_ = 1;
    impedance_ += impedanceSmoothing * (respiration.quality - impedance_);
    const bool derived =
        hasEcg && (!hasRespiration || (!respiration.rate && impedance_ < clearImpedance));
    if (const auto& rate = derived ? ecg.breathing : respiration.rate) {
      second.breathingRate = rate->perMinute;
      second.breathingQuality = rate->quality;
      second.breathingDerived = derived;
    }
    if (ecg_) reportBreaths(ecg_->breaths, index, derived);
    if (respiration_) reportBreaths(respiration_->breaths, index, !derived);
    // A stream that comes after it was taken as silent cannot change what has been reported.
    if (reported_ && index <= *reported_) return;
    reported_ = index;
    receiver_->second(second);
  }

  // The results of that second, if the part has some; earlier ones are too late.
  template <class Part, class PartSecond>
  static bool takeClosed(std::optional<Part>& part, std::int64_t index, PartSecond& second) {
    if (!part) return false;
    part->closeUpTo(index);
    bool found = false;
    while (!part->closed.empty() && part->closed.front().second <= index) {
      second = part->closed.pop();
      found = second.second == index;
    }
    return found;
  }

  // Those that were found up to that second: all of them, or none.
  void reportBreaths(FixedQueue<FoundBreath, waitingBreaths>& breaths, std::int64_t second,
                     bool use) {
    while (!breaths.empty() && breaths.front().second <= second) {
      Breath breath = breaths.pop().breath;
      if (!use) continue;
      if (lastBreath_ && breath.derived != lastDerived_) {
        if (breath.time < *lastBreath_ + nearestBreaths) continue;
        breath.duration.reset();
      }
      lastBreath_ = breath.time;
      lastDerived_ = breath.derived;
      receiver_->breath(breath);
    }
  }

  Receiver* receiver_;
  std::optional<EcgPart> ecg_;
  std::optional<RespirationPart> respiration_;
  std::optional<std::int64_t> reported_;  // the latest second
  std::optional<Time> lastBreath_;
  bool lastDerived_ = false;
  double impedance_ = 1;  // its quality, smoothed
};

Vitals::Vitals(const Settings& settings, Receiver& receiver)
    : state_(std::make_unique<State>(settings, receiver)) {}
Vitals::~Vitals() = default;
Vitals::Vitals(Vitals&&) noexcept = default;
Vitals& Vitals::operator=(Vitals&&) noexcept = default;

void Vitals::ecg(Time time, float value) { state_->ecg(time, value); }
void Vitals::respiration(Time time, float value) { state_->respiration(time, value); }
void Vitals::contact(Time time, bool on) { state_->contact(time, on); }
void Vitals::finish() { state_->finish(); }

}  // namespace Zephly::vitals
