// SPDX-License-Identifier: MIT
#include <simulator/strap.h>

#include <simulator/battery_model.h>
#include <simulator/frame_encoder.h>
#include <simulator/heart_and_lungs.h>
#include <simulator/person.h>
#include <simulator/playback.h>
#include <simulator/rates.h>
#include <simulator/temperature_model.h>
#include <zephly/platform/fatal_error.h>

#include <algorithm>
#include <utility>

namespace Zephly::simulator {

namespace {

using Bytes = std::vector<std::uint8_t>;

// One stream of a strap.
class Channel {
 public:
  virtual ~Channel() = default;
  // When the next frame is due; empty while there is none.
  virtual std::optional<StrapTime> due() const = 0;
  virtual Bytes take() = 0;

 protected:
  Channel() = default;
  Channel(const Channel&) = default;
  Channel& operator=(const Channel&) = default;
};

class WaveformChannel : public Channel {
 public:
  WaveformChannel(std::shared_ptr<HeartAndLungs> body, Bytes (HeartAndLungs::*takeFrame)())
      : body_(std::move(body)), takeFrame_(takeFrame) {}

  std::optional<StrapTime> due() const override { return waveformFrameTime(frame_); }
  Bytes take() override {
    ++frame_;
    return (*body_.*takeFrame_)();
  }

 private:
  std::shared_ptr<HeartAndLungs> body_;
  Bytes (HeartAndLungs::*takeFrame_)();
  std::int64_t frame_ = 0;
};

class MotionChannel : public Channel {
 public:
  MotionChannel(const TrainingPlan& plan, std::uint64_t seed) : person_(plan, seed) {}

  std::optional<StrapTime> due() const override { return sampleTime(reading_, motionRate); }
  Bytes take() override {
    ++reading_;
    return encodeMotion(person_.next());
  }

 private:
  Person person_;
  std::int64_t reading_ = 0;
};

class TemperatureChannel : public Channel {
 public:
  TemperatureChannel(TrainingPlan plan, std::uint64_t seed)
      : plan_(std::move(plan)), model_(seed) {}

  std::optional<StrapTime> due() const override { return sampleTime(reading_, temperatureRate); }
  Bytes take() override {
    const StrapTime now = sampleTime(reading_, temperatureRate);
    ++reading_;
    const Temperatures read = model_.next(plan_.exertion(now), plan_.electrodesOn(now));
    return encodeTemperature(read.skin, read.ambient);
  }

 private:
  TrainingPlan plan_;
  TemperatureModel model_;
  std::int64_t reading_ = 0;
};

class BatteryChannel : public Channel {
 public:
  BatteryChannel(const TrainingPlan& plan, std::uint64_t seed) : model_(plan, seed) {}

  std::optional<StrapTime> due() const override { return model_.upcoming().time; }
  Bytes take() override {
    const BatteryReport report = model_.next();
    return encodeBattery(report.percent, report.charging);
  }

 private:
  BatteryModel model_;
};

class RecordedChannel : public Channel {
 public:
  explicit RecordedChannel(Playback playback, int samplesInFrame)
      : playback_(std::move(playback)), samplesInFrame_(samplesInFrame) {}

  void begin(StrapTime at) { beginning_ = at; }
  bool ended() const { return frame_ == playback_.frames.size(); }
  const PlaybackCounts& counts() const { return playback_.counts; }

  std::optional<StrapTime> due() const override {
    if (!beginning_ || ended()) return std::nullopt;
    const PlaybackStretch& stretch = playback_.stretches[stretch_];
    const auto last =
        static_cast<std::int64_t>(frame_ - stretch.firstFrame + 1) * samplesInFrame_ - 1;
    return *beginning_ + stretch.start + sampleTime(last, playback_.rate);
  }
  Bytes take() override {
    Bytes frame = std::move(playback_.frames[frame_++]);
    const std::size_t next = stretch_ + 1;
    if (next < playback_.stretches.size() && playback_.stretches[next].firstFrame == frame_) {
      stretch_ = next;
    }
    return frame;
  }

 private:
  Playback playback_;
  int samplesInFrame_;
  std::optional<StrapTime> beginning_;
  std::size_t frame_ = 0;
  std::size_t stretch_ = 0;  // of the frame
};

}  // namespace

class Strap::Implementation {
 public:
  explicit Implementation(const StrapOptions& options)
      : plan_(options.recording ? TrainingPlan::quiet() : options.plan) {
    plan_.check();
    if (options.wearer) options.wearer->check();
    makeModels(options);
    if (options.recording) makeRecorded(*options.recording, options.seed);
  }

  void begin(StrapTime now) {
    if (std::exchange(begun_, true)) return;
    for (RecordedChannel* channel : recorded_)
      if (channel != nullptr) channel->begin(std::max(now, lastTaken_));
  }

  std::optional<StrapTime> nextTime() const {
    const Channel* const channel = channels_.at(static_cast<std::size_t>(nextStream())).get();
    return finished() ? std::nullopt : channel->due();
  }

  Frame take() {
    const std::optional<StrapTime> time = nextTime();
    if (!time) fatalError("the strap has no next frame");
    const Stream stream = nextStream();
    lastTaken_ = *time;
    return {*time, stream, channels_[stream]->take()};
  }

  bool finished() const {
    bool any = false;
    for (const RecordedChannel* channel : recorded_) {
      if (channel == nullptr) continue;
      if (!channel->ended()) return false;
      any = true;
    }
    return any;
  }

  const RecordedChannel* recorded(Stream stream) const { return recorded_[stream]; }

  const TrainingPlan& plan() const { return plan_; }
  const HeartAndLungs& body() const { return *body_; }

 private:
  void makeModels(const StrapOptions& options) {
    const std::uint64_t seed = options.seed;
    body_ = std::make_shared<HeartAndLungs>(plan_, options.wearer, seed, options.observer);
    set(Stream::temperature, std::make_unique<TemperatureChannel>(plan_, seed));
    set(Stream::ecg, std::make_unique<WaveformChannel>(body_, &HeartAndLungs::takeEcg));
    set(Stream::battery, std::make_unique<BatteryChannel>(plan_, seed));
    set(Stream::respiration,
        std::make_unique<WaveformChannel>(body_, &HeartAndLungs::takeRespiration));
    set(Stream::motion, std::make_unique<MotionChannel>(plan_, seed));
  }

  void makeRecorded(const Recording& recording, std::uint64_t seed) {
    for (const Stream stream : allStreams) {
      if (!recording.has(stream)) continue;
      auto channel = std::make_unique<RecordedChannel>(playBack(recording, stream, seed),
                                                       streamInfo(stream).samplesPerFrame);
      recorded_[stream] = channel.get();
      set(stream, std::move(channel));
    }
    if (recording.has(Stream::ecg)) body_->dropEcg();
    if (recording.has(Stream::respiration)) body_->dropRespiration();
  }

  void set(Stream stream, std::unique_ptr<Channel> channel) {
    channels_[stream] = std::move(channel);
  }

  // Of streams due at the same time the first. Some stream is always due: no recording has them
  // all.
  Stream nextStream() const {
    Stream next = allStreams.front();
    std::optional<StrapTime> earliest;
    for (const Stream stream : allStreams) {
      const auto due = channels_[stream]->due();
      if (!due || (earliest && *due >= *earliest)) continue;
      earliest = due;
      next = stream;
    }
    return next;
  }

  TrainingPlan plan_;
  std::shared_ptr<HeartAndLungs> body_;
  PerStream<std::unique_ptr<Channel>> channels_;
  PerStream<RecordedChannel*> recorded_{};
  bool begun_ = false;
  StrapTime lastTaken_{0};
};

Strap::Strap(const StrapOptions& options)
    : implementation_(std::make_unique<Implementation>(options)) {}

Strap::~Strap() = default;

void Strap::allSubscribed(StrapTime now) { implementation_->begin(now); }

std::optional<StrapTime> Strap::nextFrameTime() const { return implementation_->nextTime(); }

Frame Strap::nextFrame() { return implementation_->take(); }

bool Strap::finished() const { return implementation_->finished(); }

std::optional<PlaybackCounts> Strap::playback(Stream stream) const {
  const RecordedChannel* const channel = implementation_->recorded(stream);
  if (channel == nullptr) return std::nullopt;
  return channel->counts();
}

const TrainingPlan& Strap::plan() const { return implementation_->plan(); }

Repetitions Strap::repetitionsDone(StrapTime time) const { return plan().repetitionsDone(time); }

bool Strap::electrodesOn(StrapTime time) const { return plan().electrodesOn(time); }

double Strap::heartRate(StrapTime time) const { return implementation_->body().heartRate(time); }

double Strap::breathingRate(StrapTime time) const {
  return implementation_->body().breathingRate(time);
}

}  // namespace Zephly::simulator
