// SPDX-License-Identifier: MIT
#include <bench/vitals/net_trainer.h>

#include <bench/vitals/disturbed.h>
#include <bench/vitals/wfdb.h>

#include <vitals/beat_engine.h>
#include <vitals/beat_rules.h>
#include <vitals/net_judge.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <random>

namespace Zephly::bench {

namespace {

using vitals::beatFeatureCount;
using vitals::BeatFeatures;
using vitals::BeatNet;

constexpr int rounds = 4;
constexpr int roundsKept = 3;
constexpr int epochs = 4;
constexpr std::size_t batch = 64;
constexpr double labelWindow = 0.1;  // s

struct Example {
  BeatFeatures features;
  float beat;  // 1 or 0
  float weight;
};

double secondsOf(vitals::Time time) { return static_cast<double>(time.count()) * 1e-9; }

// Lets another judge decide, and notes what it was asked and what would have been right.
class Examiner : public vitals::BeatJudge {
 public:
  Examiner(const MarkedRecording& recording, std::unique_ptr<vitals::BeatJudge> judge,
           std::vector<Example>& examples, float weight)
      : recording_(recording), judge_(std::move(judge)), examples_(examples), weight_(weight) {}

  double certainty(const vitals::Candidate& candidate, const vitals::Surroundings& around,
                   const vitals::BeatHistory& history) override {
    const double result = judge_->certainty(candidate, around, history);
    const double time = secondsOf(candidate.time);
    const bool used = vitals::NetJudge::decides(candidate, history);
    const auto& beats = recording_.beats;
    while (next_ < beats.size() && beats[next_].time < time - labelWindow) ++next_;
    const bool beat = next_ < beats.size() && beats[next_].time <= time + labelWindow;
    const bool flutter = std::any_of(
        recording_.flutter.begin(), recording_.flutter.end(),
        [time](const Span& span) { return time >= span.from - 0.2 && time <= span.to + 0.2; });
    if (used && !flutter) {
      examples_.push_back(
          {vitals::beatFeatures(candidate, around, history), beat ? 1.0F : 0.0F, weight_});
    }
    if (result >= 0.5 && beat) ++next_;
    return result;
  }

 private:
  const MarkedRecording& recording_;
  std::unique_ptr<vitals::BeatJudge> judge_;
  std::vector<Example>& examples_;
  float weight_;
  std::size_t next_ = 0;  // the first marked beat that was neither passed nor found
};

std::unique_ptr<vitals::BeatJudge> judgeOf(const BeatNet* net) {
  if (net == nullptr) return std::make_unique<vitals::BeatRules>();
  return std::make_unique<vitals::NetJudge>(*net);
}

std::vector<FoundBeat> findWith(const MarkedRecording& recording,
                                std::unique_ptr<vitals::BeatJudge> judge) {
  vitals::BeatEngine engine(recording.rate, false, std::move(judge));
  std::vector<FoundBeat> found;
  const double period = 1e9 / recording.rate;
  const auto take = [&] {
    while (const auto beat = engine.next()) found.push_back({secondsOf(beat->time), 1, false});
  };
  for (std::size_t i = 0; i < recording.ecg.size(); ++i) {
    engine.push(vitals::Time{static_cast<std::int64_t>(static_cast<double>(i) * period)},
                recording.ecg[i]);
    take();
  }
  engine.finish();
  take();
  return found;
}

// The recording, or another form of it.
MarkedRecording variant(const TrainingRecord& record, int kind, std::mt19937& random) {
  std::uniform_real_distribution<double> uniform(0, 1);
  MarkedRecording result = record.first;
  if (kind == 0) return result;
  if (kind == 1 || uniform(random) < 0.3) {
    // Another pair of electrodes, between the two recorded ones.
    const double angle = 6.2832 * uniform(random);
    for (std::size_t i = 0; i < result.ecg.size(); ++i) {
      result.ecg[i] = static_cast<float>(std::cos(angle) * static_cast<double>(result.ecg[i]) +
                                         std::sin(angle) * static_cast<double>(record.second[i]));
    }
  }
  if (kind == 2 || uniform(random) < 0.3) {
    result = noisy(result, uniform(random) < 0.5 ? Noise::white : Noise::muscle,
                   -2 + 26 * uniform(random));
  }
  if (kind == 3 || uniform(random) < 0.3) {
    result = faster(result, 0.8 + 1.5 * uniform(random));
  }
  return result;
}

// The weights in one row, with their gradients and moments.
class Trainee {
 public:
  explicit Trainee(std::mt19937& random) {
    std::normal_distribution<float> normal;
    const auto fill = [&](auto& rows, std::size_t inputs) {
      for (auto& row : rows) {
        for (float& weight : row) {
          weight = normal(random) * std::sqrt(2.0F / static_cast<float>(inputs));
        }
      }
    };
    fill(net_.firstWeights, beatFeatureCount);
    fill(net_.secondWeights, BeatNet::first);
    for (float& weight : net_.lastWeights) weight = normal(random) * 0.3F;
  }

  void standardise(const std::vector<Example>& examples) {
    std::array<double, beatFeatureCount> sum{};
    std::array<double, beatFeatureCount> squares{};
    for (const Example& example : examples) {
      for (std::size_t i = 0; i < beatFeatureCount; ++i) {
        sum[i] += example.features[i];
        squares[i] += static_cast<double>(example.features[i]) * example.features[i];
      }
    }
    const auto count = static_cast<double>(examples.size());
    for (std::size_t i = 0; i < beatFeatureCount; ++i) {
      const double mean = sum[i] / count;
      net_.mean[i] = static_cast<float>(mean);
      net_.scale[i] =
          static_cast<float>(1 / std::sqrt(std::max(squares[i] / count - mean * mean, 1e-4)));
    }
  }

  void learn(const Example& example) {
    std::array<float, beatFeatureCount> in;
    for (std::size_t i = 0; i < beatFeatureCount; ++i) {
      in[i] = (example.features[i] - net_.mean[i]) * net_.scale[i];
    }
    std::array<float, BeatNet::first> one = net_.firstBias;
    for (std::size_t i = 0; i < in.size(); ++i) {
      for (std::size_t j = 0; j < one.size(); ++j) one[j] += in[i] * net_.firstWeights[i][j];
    }
    std::array<float, BeatNet::second> two = net_.secondBias;
    for (std::size_t i = 0; i < one.size(); ++i) {
      for (std::size_t j = 0; j < two.size(); ++j)
        two[j] += bent(one[i]) * net_.secondWeights[i][j];
    }
    float logit = net_.lastBias;
    for (std::size_t i = 0; i < two.size(); ++i) logit += bent(two[i]) * net_.lastWeights[i];

    const float error = example.weight * (1 / (1 + std::exp(-logit)) - example.beat);
    std::array<float, BeatNet::second> twoError;
    for (std::size_t i = 0; i < two.size(); ++i) {
      gradient_.lastWeights[i] += error * bent(two[i]);
      twoError[i] = error * net_.lastWeights[i] * bend(two[i]);
      gradient_.secondBias[i] += twoError[i];
    }
    gradient_.lastBias += error;
    std::array<float, BeatNet::first> oneError{};
    for (std::size_t i = 0; i < one.size(); ++i) {
      for (std::size_t j = 0; j < two.size(); ++j) {
        oneError[i] += twoError[j] * net_.secondWeights[i][j];
        gradient_.secondWeights[i][j] += twoError[j] * bent(one[i]);
      }
      oneError[i] *= bend(one[i]);
      gradient_.firstBias[i] += oneError[i];
    }
    for (std::size_t i = 0; i < in.size(); ++i) {
      for (std::size_t j = 0; j < one.size(); ++j)
        gradient_.firstWeights[i][j] += oneError[j] * in[i];
    }
  }

  void step(float rate) {
    ++steps_;
    const float firstShare = 1 - std::pow(0.9F, static_cast<float>(steps_));
    const float secondShare = 1 - std::pow(0.999F, static_cast<float>(steps_));
    for (std::size_t i = 0; i < size; ++i) {
      const float slope = values(gradient_)[i] / batch + 1e-5F * values(net_)[i];
      float& mean = values(moment_)[i];
      float& square = values(square_)[i];
      mean = 0.9F * mean + 0.1F * slope;
      square = 0.999F * square + 0.001F * slope * slope;
      values(net_)[i] -= rate * (mean / firstShare) / (std::sqrt(square / secondShare) + 1e-8F);
      values(gradient_)[i] = 0;
    }
  }

  const BeatNet& net() const { return net_; }

 private:
  static constexpr std::size_t fixed = 2 * beatFeatureCount;  // mean and scale
  static constexpr std::size_t size = sizeof(BeatNet) / sizeof(float) - fixed;

  static float* values(BeatNet& net) { return reinterpret_cast<float*>(&net) + fixed; }
  static float bent(float value) { return value > 0 ? value : 0.05F * value; }
  static float bend(float value) { return value > 0 ? 1 : 0.05F; }

  BeatNet net_{};
  BeatNet gradient_{};
  BeatNet moment_{};
  BeatNet square_{};
  long steps_ = 0;
};

}  // namespace

std::vector<TrainingRecord> readTrainingRecords(const std::filesystem::path& folder) {
  std::vector<TrainingRecord> records;
  std::vector<MarkedRecording> second = readRecordings(folder, 1);
  for (MarkedRecording& recording : readRecordings(folder)) {
    const std::size_t number = records.size();
    records.push_back({std::move(recording), std::move(second[number].ecg)});
  }
  return records;
}

BeatNet trainNet(const std::vector<TrainingRecord>& records, unsigned seed) {
  std::mt19937 random(seed);
  Trainee trainee(random);
  std::vector<std::vector<Example>> visited;
  BeatNet net{};
  for (int round = 0; round < rounds; ++round) {
    std::vector<Example> examples;
    for (const TrainingRecord& record : records) {
      for (int kind = 0; kind < 4; ++kind) {
        const MarkedRecording recording = variant(record, kind, random);
        findWith(recording,
                 std::make_unique<Examiner>(recording, judgeOf(round == 0 ? nullptr : &net),
                                            examples, kind == 0 ? 1.0F : 0.5F));
      }
    }
    if (round == 0) trainee.standardise(examples);
    visited.push_back(std::move(examples));
    if (round >= roundsKept)
      std::vector<Example>().swap(visited[static_cast<std::size_t>(round - roundsKept)]);
    std::vector<const Example*> order;
    for (const auto& each : visited) {
      for (const Example& example : each) order.push_back(&example);
    }
    for (int epoch = 0; epoch < epochs; ++epoch) {
      std::shuffle(order.begin(), order.end(), random);
      const bool last = round + 1 == rounds;
      const float rate =
          (last ? 1e-3F : 2e-3F) * (last ? 1 - 0.9F * static_cast<float>(epoch) / (epochs - 1) : 1);
      for (std::size_t i = 0; i < order.size(); ++i) {
        trainee.learn(*order[i]);
        if ((i + 1) % batch == 0) trainee.step(rate);
      }
    }
    net = trainee.net();
    std::fprintf(stderr, "round %d: %zu examples\n", round, order.size());
  }
  return net;
}

Score scoreWithNet(const MarkedRecording& recording, const BeatNet& net) {
  return score(recording, findWith(recording, judgeOf(&net)));
}

}  // namespace Zephly::bench
