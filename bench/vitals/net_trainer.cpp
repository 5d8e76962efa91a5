// SPDX-License-Identifier: MIT
#include <bench/vitals/net_trainer.h>

#include <vitals/beat_rules.h>
#include <vitals/net_judge.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <random>

namespace Zephly::bench {

namespace {

using vitals::beatFeatureCount;
using vitals::BeatFeatures;
using vitals::BeatNet;

constexpr int rounds = 4;
constexpr std::size_t roundsKept = 3;
constexpr int epochs = 2;  // a round
constexpr std::size_t batch = 64;
constexpr float decay = 0.1F;     // of the weights, times the rate of learning
constexpr double dropped = 0.08;  // share of inputs replaced by their mean
// The weights of the net are means of those of the last thousand steps.
constexpr float averaged = 1e-3F;
// Examples with a smaller error teach nothing.
constexpr float leastError = 2e-3F;
// Added to the logarithm of the odds: a missed beat costs more than a false one, because the net is
// less certain of beats in recordings that it does not know.
constexpr float eagerness = 1;
constexpr double labelWindow = 0.1;  // s

struct Example {
  BeatFeatures features;
  float beat;  // 1 or 0
  float weight;
};

double secondsOf(vitals::Time time) { return static_cast<double>(time.count()) * 1e-9; }

bool inFlutter(const MarkedRecording& marks, double time) {
  return std::any_of(marks.flutter.begin(), marks.flutter.end(), [time](const Span& span) {
    return time >= span.from - 0.2 && time <= span.to + 0.2;
  });
}

// What `judge` was asked about a form, and what would have been right.
void examine(const TrainingForm& form, vitals::BeatJudge& judge, std::vector<Example>& examples) {
  const auto& beats = form.marks.beats;
  std::size_t next = 0;  // the first marked beat that was neither passed nor found
  form.trace.decide(
      judge, [&](const vitals::Candidate& candidate, const vitals::Surroundings& around,
                 const vitals::BeatHistory& history, bool accepted) {
        const double time = secondsOf(candidate.time);
        while (next < beats.size() && beats[next].time < time - labelWindow) ++next;
        const bool beat = next < beats.size() && beats[next].time <= time + labelWindow;
        if (vitals::NetJudge::decides(candidate, history) && !inFlutter(form.marks, time)) {
          examples.push_back(
              {vitals::beatFeatures(candidate, around, history), beat ? 1.0F : 0.0F, form.weight});
        }
        if (accepted && beat) ++next;
      });
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
      drop_ = drop_ * 1664525U + 1013904223U;
      if (drop_ < droppedBelow) in[i] = 0;
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
    if (std::abs(error) < leastError) return;
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
      const float slope = values(gradient_)[i] / batch;
      float& mean = values(moment_)[i];
      float& square = values(square_)[i];
      mean = 0.9F * mean + 0.1F * slope;
      square = 0.999F * square + 0.001F * slope * slope;
      values(net_)[i] -= rate * (mean / firstShare) / (std::sqrt(square / secondShare) + 1e-8F);
      values(net_)[i] -= rate * decay * values(net_)[i];
      values(gradient_)[i] = 0;
      const float share = std::max(averaged, 1 / static_cast<float>(steps_));
      values(average_)[i] += share * (values(net_)[i] - values(average_)[i]);
    }
  }

  BeatNet net() const {
    BeatNet result = average_;
    result.mean = net_.mean;
    result.scale = net_.scale;
    result.lastBias += eagerness;
    return result;
  }

 private:
  static constexpr auto droppedBelow = static_cast<std::uint32_t>(dropped * 4294967296.0);
  static constexpr std::size_t fixed = 2 * beatFeatureCount;  // mean and scale
  static constexpr std::size_t size = sizeof(BeatNet) / sizeof(float) - fixed;

  static float* values(BeatNet& net) { return reinterpret_cast<float*>(&net) + fixed; }
  static float bent(float value) { return value > 0 ? value : 0.05F * value; }
  static float bend(float value) { return value > 0 ? 1 : 0.05F; }

  BeatNet net_{};
  BeatNet gradient_{};
  BeatNet moment_{};
  BeatNet square_{};
  BeatNet average_{};
  long steps_ = 0;
  std::uint32_t drop_ = 1;  // random
};

}  // namespace

BeatNet trainNet(const std::vector<const TrainingForm*>& forms, unsigned seed) {
  std::mt19937 random(seed);
  Trainee trainee(random);
  std::deque<std::vector<Example>> visited;
  vitals::BeatRules rules;
  BeatNet net{};
  vitals::NetJudge judge(net);
  for (int round = 0; round < rounds; ++round) {
    std::vector<Example>& examples = visited.emplace_back();
    for (const TrainingForm* form : forms) {
      if (round == 0) {
        examine(*form, rules, examples);
      } else {
        examine(*form, judge, examples);
      }
    }
    if (round == 0) trainee.standardise(examples);
    if (visited.size() > roundsKept) visited.pop_front();
    std::vector<const Example*> order;
    for (const auto& each : visited) {
      for (const Example& example : each) order.push_back(&example);
    }
    for (int epoch = 0; epoch < epochs; ++epoch) {
      std::shuffle(order.begin(), order.end(), random);
      const bool last = round + 1 == rounds;
      // The last round ends with a tenth of its rate.
      const float rate = !last ? 2e-3F : epoch + 1 == epochs ? 1e-4F : 1e-3F;
      for (std::size_t i = 0; i < order.size(); ++i) {
        trainee.learn(*order[i]);
        if ((i + 1) % batch == 0) trainee.step(rate);
      }
    }
    net = trainee.net();
  }
  return net;
}

}  // namespace Zephly::bench
