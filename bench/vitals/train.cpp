// SPDX-License-Identifier: MIT
// Trains the net of vitals/beat_net.h on a folder of annotated recordings.
//
// Each round runs the detector with the net of the round before (the first with the rules) and
// learns from the candidates it met there: what it knows of the beats before depends on its own
// decisions, so it is trained on the states it visits itself (S. Ross, G. Gordon and D. Bagnell, "A
// reduction of imitation learning and structured prediction to no-regret online learning", AISTATS
// 2011). Besides the recordings it sees what training_forms.cpp makes of them.
// Weights follow D. P. Kingma and J. Ba, "Adam: a method for stochastic optimization", ICLR 2015.

#include <bench/vitals/disturbed.h>
#include <bench/vitals/net_trainer.h>
#include <bench/vitals/run.h>
#include <bench/vitals/score.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
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

// Nets for all records, each trained on the records of the other parts.
std::vector<Zephly::vitals::BeatNet> netsOfParts(const std::vector<TrainingRecord>& records,
                                                 unsigned seed, std::size_t parts) {
  const FormsOfRecords forms = trainingForms(records, seed);
  std::vector<Zephly::vitals::BeatNet> nets(parts);
  forEachIndex(parts, [&](std::size_t part) {
    std::vector<const TrainingForm*> rest;
    for (std::size_t i = 0; i < records.size(); ++i) {
      if (i % parts == part && parts > 1) continue;
      for (const TrainingForm& form : forms[i]) rest.push_back(&form);
    }
    nets[part] = trainNet(rest, seed);
  });
  return nets;
}

// A table of how each record is judged by a net that was trained without it.
void leaveOut(const std::vector<TrainingRecord>& records, unsigned seed, std::size_t parts) {
  const auto nets = netsOfParts(records, seed, parts);
  Score all;
  std::printf("%s", scoreTableHead());
  for (std::size_t i = 0; i < records.size(); ++i) {
    const MarkedRecording& recording = records[i].first;
    const Score each = score(recording, findBeats(recording, nets[i % parts]).beats);
    std::printf("%s", scoreTableRow(recording.name, each).c_str());
    all += each;
  }
  std::printf("%s", scoreTableRow("all", all).c_str());
  for (const double factor : {2.0, 2.2}) {
    Score changed;
    for (std::size_t i = 0; i < records.size(); ++i) {
      const MarkedRecording recording = faster(records[i].first, factor);
      changed += score(recording, findBeats(recording, nets[i % parts]).beats);
    }
    char name[40];
    std::snprintf(name, sizeof name, "all, %g times the speed", factor);
    std::printf("%s", scoreTableRow(name, changed).c_str());
  }
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
      const int parts = std::atoi(arguments[4]);
      if (parts < 2 || parts > static_cast<int>(records.size())) {
        throw std::runtime_error("PARTS is from 2 to the number of records");
      }
      leaveOut(records, seed, static_cast<std::size_t>(parts));
    } else {
      writeTable(netsOfParts(records, seed, 1).front(), seed, arguments[3]);
    }
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "error: %s\n", problem.what());
    return 1;
  }
  return 0;
}
