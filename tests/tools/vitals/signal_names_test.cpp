// SPDX-License-Identifier: MIT
#include <tools/vitals/signal_names.h>

#include <tools/vitals/input_error.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace Zephly::recorders;

class NamedSignals final : public SignalFile {
 public:
  explicit NamedSignals(std::vector<SignalInfo> signals) : signals_(std::move(signals)) {}

  const char* format() const override { return "none"; }
  const std::vector<SignalInfo>& signals() const override { return signals_; }
  std::vector<std::filesystem::path> files() const override { return {"a.edf"}; }
  std::optional<double> annotationRate() const override { return std::nullopt; }
  double part() const override { return 1; }
  void choose(const std::vector<std::size_t>& /*signals*/) override {}
  bool next(std::vector<SignalSample>& /*samples*/) override { return false; }

 private:
  std::vector<SignalInfo> signals_;
};

std::string refusal(const std::vector<SignalInfo>& signals, const SignalOptions& options = {}) {
  try {
    chooseSignals(NamedSignals(signals), options);
  } catch (const InputError& error) {
    return error.what();
  }
  return "";
}

SignalChoice choice(const std::vector<SignalInfo>& signals, const SignalOptions& options = {}) {
  return chooseSignals(NamedSignals(signals), options);
}

TEST(SignalNamesTest, RecognisesAnEcg) {
  for (const char* name :
       {"ECG", "ecg_mV", "EKG II", "ECG chest", "EcgWaveform", "MLII", "MLIII", "V", "V1", "V4R",
        "EKG", "Lead 1", "MV5", "I", "II,", "aVR", "ECG (mV)", "Lead-III"}) {
    EXPECT_TRUE(isEcgName(name)) << name;
  }
  for (const char* name : {"EEG Fpz-Cz", "RESP", "PLETH", "ABP", "VX", "V0", "Misc battery",
                           "Temp skin", "", "IIII", "MCL1x", "Battery V", "V battery", "Resp mV"}) {
    EXPECT_FALSE(isEcgName(name)) << name;
  }
}

TEST(SignalNamesTest, RecognisesRespiration) {
  for (const char* name :
       {"RESP", "Resp chest raw", "RSP", "Thorax", "thoracic", "Chest", "ABDO RES", "impedance"}) {
    EXPECT_TRUE(isRespirationName(name)) << name;
  }
  for (const char* name : {"ECG chest", "Airflow", "ECG", "Temp skin"}) {
    EXPECT_FALSE(isRespirationName(name)) << name;
  }
}

TEST(SignalNamesTest, SplitsUnits) {
  EXPECT_EQ(splitUnit("ECG (mV)").name, "ECG");
  EXPECT_EQ(splitUnit("ECG (mV)").unit, "mV");
  EXPECT_EQ(splitUnit("ECG[uV]").unit, "uV");
  EXPECT_EQ(splitUnit("ecg_mV").name, "ecg");
  EXPECT_EQ(splitUnit("lead_one").name, "lead_one");
  EXPECT_EQ(splitUnit("lead_one").unit, "");
  EXPECT_EQ(splitUnit("(mV)").name, "");
  EXPECT_EQ(splitUnit("").name, "");
  EXPECT_EQ(splitUnit("Resp (chest) raw").name, "Resp (chest) raw");
  EXPECT_EQ(splitUnit("Resp (chest) raw").unit, "");
}

TEST(SignalNamesTest, KnowsUnitsOfVoltage) {
  EXPECT_EQ(millivoltsOf("mV"), 1);
  EXPECT_EQ(millivoltsOf("V"), 1000);
  EXPECT_EQ(millivoltsOf("uV"), 0.001);
  EXPECT_EQ(millivoltsOf("\u00B5V"), 0.001);
  EXPECT_EQ(millivoltsOf("\u03BCV"), 0.001);
  EXPECT_EQ(millivoltsOf("nV"), 1e-6);
  EXPECT_FALSE(millivoltsOf("NU"));
}

TEST(SignalNamesTest, ChoosesTheFirstOfEachKind) {
  const SignalChoice chosen =
      choice({{"EEG", "", 250}, {"Resp", "", 25}, {"V5", "", 250}, {"ECG", "", 250}});
  EXPECT_EQ(chosen.ecg, 2U);
  EXPECT_EQ(chosen.respiration, 1U);
}

TEST(SignalNamesTest, ChoosesWhatTheUserNames) {
  const std::vector<SignalInfo> signals = {{"ecg", "", 250}, {"ECG", "", 250}, {"Belt", "", 25}};
  EXPECT_EQ(choice(signals, {.ecg = "ECG"}).ecg, 1U);
  EXPECT_EQ(choice(signals, {.ecg = "Ecg"}).ecg, 0U);
  EXPECT_EQ(choice(signals, {.respiration = "belt"}).respiration, 2U);
  EXPECT_EQ(refusal(signals, {.ecg = "II"}),
            "a.edf: --signal: no signal \"II\"; it has \"ecg\", \"ECG\", \"Belt\"");
  EXPECT_EQ(refusal(signals, {.ecg = "ECG", .respiration = "ECG"}),
            "a.edf: --signal and --respiration name the same signal");
}

TEST(SignalNamesTest, TakesASingleSignalForTheEcg) {
  EXPECT_EQ(choice({{"1", "", 250}}).ecg, 0U);
  EXPECT_FALSE(choice({{"RESP", "", 250}}).ecg);
  EXPECT_EQ(choice({{"RESP", "", 250}}).respiration, 0U);
}

TEST(SignalNamesTest, RefusesToGuess) {
  EXPECT_EQ(refusal({{"a", "", 250}, {"b", "", 250}}),
            "a.edf: no signal is named like an ECG (see --signal); it has \"a\", \"b\"");
}

TEST(SignalNamesTest, ListsTwentySignalsAtMost) {
  const std::vector<SignalInfo> twenty(20, {"a", "", 250});
  EXPECT_TRUE(refusal(twenty).ends_with("; it has " + [] {
    std::string list = "\"a\"";
    for (int i = 1; i < 20; ++i) list += ", \"a\"";
    return list;
  }()));
  std::vector<SignalInfo> more = twenty;
  more.push_back({"b", "", 250});
  EXPECT_EQ(refusal(more), refusal(twenty) + " and more");
}

TEST(SignalNamesTest, ChecksTheRates) {
  EXPECT_EQ(refusal({{"ECG", "", 64}}),
            "a.edf: \"ECG\" has 64 samples per second; 100 to 1000 expected");
  EXPECT_EQ(refusal({{"ECG", "", 2000.5}}),
            "a.edf: \"ECG\" has 2000.5 samples per second; 100 to 1000 expected");
  // Respiration that nobody asked for is left out.
  EXPECT_FALSE(choice({{"ECG", "", 250}, {"Resp", "", 1}}).respiration);
  EXPECT_EQ(refusal({{"ECG", "", 250}, {"Resp", "", 1}}, {.respiration = "Resp"}),
            "a.edf: \"Resp\" has 1 samples per second; 10 to 1000 expected");
}

}  // namespace
