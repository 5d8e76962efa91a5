// SPDX-License-Identifier: MIT
// Trains the net of vitals/beat_net.h on a folder of annotated recordings.
//
// Each round runs the detector with the net of the round before (the first with the rules) and
// learns from the candidates it met there: what it knows of the beats before depends on its own
// decisions, so it is trained on the states it visits itself (S. Ross, G. Gordon and D. Bagnell, "A
// reduction of imitation learning and structured prediction to no-regret online learning", AISTATS
// 2011). Besides the recordings it sees mixtures of their channels, noise, and other tempos.
// Weights follow D. P. Kingma and J. Ba, "Adam: a method for stochastic optimization", ICLR 2015.

#include <bench/vitals/disturbed.h>
#include <bench/vitals/net_trainer.h>
#include <bench/vitals/score.h>
#include <bench/vitals/wfdb.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

namespace {

using namespace Zephly::bench;

void writeArray(std::FILE* file, const float* values, std::size_t count) {
  std::fprintf(file, "{");
  for (std::size_t i = 0; i < count; ++i) {
    std::fprintf(file, "%s%aF", i == 0 ? "" : ", ", static_cast<double>(values[i]));
  }
  std::fprintf(file, "}");
}

void writeTable(const Zephly::vitals::BeatNet& net, unsigned seed, const char* path) {
  std::FILE* file = std::fopen(path, "w");
  if (file == nullptr) throw std::runtime_error(std::string(path) + ": cannot be written");
  std::fprintf(
      file,
      "// SPDX-License-Identifier: MIT\n#pragma once\n/// @file\n"
      "/// Weights of the net, written by zephly_vitals_train with seed %u. The recordings and\n"
      "/// their checksums: docs/vitals.md.\n\n"
      "#include <vitals/beat_net.h>\n\nnamespace Zephly::vitals {\n\n"
      "// clang-format off\ninline constexpr BeatNet beatNetWeights = {\n",
      seed);
  const auto row = [file](const auto& values) {
    writeArray(file, values.data(), values.size());
    std::fprintf(file, ",\n");
  };
  const auto rows = [&](const auto& matrix) {
    std::fprintf(file, "{{\n");
    for (const auto& each : matrix) {
      std::fprintf(file, "{");
      row(each);
      std::fseek(file, -2, SEEK_CUR);
      std::fprintf(file, "},\n");
    }
    std::fprintf(file, "}},\n");
  };
  row(net.mean);
  row(net.scale);
  rows(net.firstWeights);
  row(net.firstBias);
  rows(net.secondWeights);
  row(net.secondBias);
  row(net.lastWeights);
  std::fprintf(file, "%aF};\n// clang-format on\n\n}  // namespace Zephly::vitals\n",
               static_cast<double>(net.lastBias));
  if (std::fclose(file) != 0) throw std::runtime_error(std::string(path) + ": cannot be written");
}

void print(const char* name, const Score& score) {
  std::printf("%s: missed %lld, extra %lld, Se %.3f, +P %.3f, F1 %.3f, F1 50 ms %.3f\n", name,
              static_cast<long long>(score.wide.missed), static_cast<long long>(score.wide.extra),
              score.wide.sensitivity(), score.wide.predictivity(), score.wide.f1(),
              score.narrow.f1());
  std::fflush(stdout);
}

// Each record judged by a net that was trained without it and others of its part.
void leaveOut(const std::vector<TrainingRecord>& records, unsigned seed, int parts) {
  Score all;
  for (int part = 0; part < parts; ++part) {
    std::vector<TrainingRecord> rest;
    for (std::size_t i = 0; i < records.size(); ++i) {
      if (static_cast<int>(i) % parts != part) rest.push_back(records[i]);
    }
    const Zephly::vitals::BeatNet net = trainNet(rest, seed);
    for (std::size_t i = 0; i < records.size(); ++i) {
      if (static_cast<int>(i) % parts != part) continue;
      const Score each = scoreWithNet(records[i].first, net);
      print(records[i].first.name.c_str(), each);
      all += each;
    }
  }
  print("all, left out", all);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4 && !(count == 5 && std::strcmp(arguments[3], "--leave-out") == 0)) {
    std::fprintf(stderr,
                 "usage: zephly_vitals_train FOLDER SEED TABLE.h\n"
                 "       zephly_vitals_train FOLDER SEED --leave-out PARTS\n");
    return 2;
  }
  try {
    const std::vector<TrainingRecord> records = readTrainingRecords(arguments[1]);
    const auto seed = static_cast<unsigned>(std::strtoul(arguments[2], nullptr, 10));
    if (count == 5) {
      leaveOut(records, seed, std::atoi(arguments[4]));
    } else {
      writeTable(trainNet(records, seed), seed, arguments[3]);
    }
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "error: %s\n", problem.what());
    return 1;
  }
  return 0;
}
