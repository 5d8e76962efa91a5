// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// An EDF, EDF+, BDF or BDF+ file (B. Kemp, A. Varri, A. C. Rosa, K. D. Nielsen, J. Gade: A simple
/// format for exchange of digitized polygraphic recordings, Electroencephalography and Clinical
/// Neurophysiology 82, 1992; B. Kemp, J. Olivan: EDF+, Clinical Neurophysiology 114, 2003;
/// BDF, by BioSemi, has 24 bits in place of 16).
///
///   EdfReader file("night.edf");
///
/// EDFlib, which writes such files in tools/export, is not used here: it refuses discontinuous
/// files (EDF+D), and does not say where in a file an error is. The tests compare both.
///
/// Time 0 is the beginning of the first data record. Of the annotations only those are read that
/// exclude a stretch (see edf_exclusions.h): its samples are left out.

#include <tools/vitals/edf_exclusions.h>
#include <tools/vitals/input_file.h>
#include <tools/vitals/signal_file.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::recorders {

class EdfReader final : public SignalFile {
 public:
  /// Whether the file begins as EDF or BDF does.
  static bool isEdf(const InputFile& file);

  /// Throws InputError.
  explicit EdfReader(InputFile file);

  const char* format() const override;
  const std::vector<SignalInfo>& signals() const override { return infos_; }
  std::vector<std::filesystem::path> files() const override { return {file_.path()}; }
  std::optional<double> annotationRate() const override { return std::nullopt; }
  double part() const override;

  /// Reads the annotations of the whole file.
  void choose(const std::vector<std::size_t>& signals) override;
  bool next(std::vector<SignalSample>& samples) override;

 private:
  // Where a signal is in a data record, and its scale.
  struct Place {
    std::uint64_t begin = 0;  // bytes
    std::uint64_t samples = 0;
    double gain = 0;
    double zero = 0;  // the value of step 0
  };

  struct Fields;

  std::uint64_t bytesOf(const Place& place) const { return sampleSize_ * place.samples; }
  [[noreturn]] void fail(std::uint64_t at, const std::string& reason) const;
  void readFileHeader(const std::string& header);
  void readSignals(const std::string& header);
  Place scaleOf(const Fields& fields, std::size_t signal) const;
  void checkSize();
  /// When the data record begins, in seconds of the file's clock; empty when it does not say so.
  std::optional<double> onset(std::uint64_t record) const;
  vitals::Time beginOf(std::uint64_t record);
  void readExclusions();

  InputFile file_;
  bool bdf_ = false;
  std::uint64_t sampleSize_ = 2;  // bytes
  bool plus_ = false;
  bool discontinuous_ = false;
  std::uint64_t headerSize_ = 0;
  std::uint64_t recordSize_ = 0;
  std::uint64_t records_ = 0;
  bool recordsKnown_ = false;  // by the header
  double duration_ = 0;        // of a data record, in seconds
  std::vector<SignalInfo> infos_;
  std::vector<Place> places_;       // of infos_
  std::vector<Place> annotations_;  // the first one begins with the time of the data record
  std::vector<std::size_t> chosen_;
  std::uint64_t next_ = 0;  // data record
  double firstOnset_ = 0;
  double lastOnset_ = 0;
  EdfExclusions exclusions_;
};

}  // namespace Zephly::recorders
