// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The contents of a capture, counted while its records are written or read.
///
///   Contents contents;
///   for (...) contents.take(record);
///   contents.finish();
///   contents.of(Stream::ecg).samples;
///
/// Memory is needed for the lists only, which keep their first entries. The counts have no limit.

#include <capture/record.h>
#include <tools/watch/arrival_meter.h>
#include <tools/watch/gap_meter.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::inspect {

/// Entries of each list, of which there may be more.
inline constexpr std::size_t longestList = 1000;

struct StreamContents {
  std::uint64_t notifications = 0;  ///< with a value
  std::uint64_t samples = 0;        ///< in these
  std::uint64_t unusualSize = 0;    ///< of these, those that are not as long as the stream's are
  watch::ArrivalMeter arrivals;     ///< of samples, while there was a link
  watch::GapMeter gaps;             ///< with a link or without
};

/// A silence between two notifications of a stream that is longer than watch::gapLimit().
struct Gap {
  Stream stream{};
  StrapTime from{};               ///< the last notification before it
  std::optional<StrapTime> to{};  ///< the first one after it; empty: there is none
  bool linkLost = false;          ///< the link was lost meanwhile
};

struct LinkLoss {
  StrapTime time{};
  std::optional<std::string> reason{};
  std::optional<StrapTime> recovery{};  ///< the next connection; empty: there is none
};

/// An error that the host reported with anything but the end of a link.
struct Failure {
  StrapTime time{};
  std::string what;  ///< which answer it came with
  std::string text;
};

class Contents {
 public:
  Contents();

  void take(const capture::Record& record);
  /// No record follows: open links and gaps end with the last record.
  void finish();

  std::uint64_t records() const { return records_; }
  /// Time of the last record.
  StrapTime duration() const { return now_; }
  bool connected() const { return connected_; }
  const StreamContents& of(Stream stream) const;
  /// Notifications of characteristics that carry no stream.
  std::uint64_t otherNotifications() const { return otherNotifications_; }

  const std::vector<StrapTime>& connections() const { return connections_; }
  std::uint64_t connectionCount() const { return connectionCount_; }
  const std::vector<LinkLoss>& linkLosses() const { return linkLosses_; }
  std::uint64_t linkLossCount() const { return linkLossCount_; }
  const std::vector<Gap>& gaps() const { return gaps_; }
  std::uint64_t gapCount() const { return gapCount_; }
  const std::vector<Failure>& failures() const { return failures_; }
  std::uint64_t failureCount() const { return failureCount_; }

 private:
  struct Silence {
    StrapTime since{};
    bool linkLost = false;
  };

  void note(const capture::StateChanged& what);
  void note(const capture::Discovered& what);
  void note(const capture::Connected& what);
  void note(const capture::FailedToConnect& what);
  void note(const capture::Disconnected& what);
  void note(const capture::ServicesDiscovered& what);
  void note(const capture::CharacteristicsDiscovered& what);
  void note(const capture::SubscriptionChanged& what);
  void note(const capture::Value& what);
  void note(const capture::Ended& what);
  void fail(const char* what, const capture::ErrorText& error);
  void count(Stream stream, std::size_t bytes);
  void endSilence(Stream stream, std::optional<StrapTime> to);

  std::uint64_t records_ = 0;
  StrapTime now_{};
  bool connected_ = false;
  PerStream<StreamContents> streams_;
  PerStream<std::optional<Silence>> silences_;
  std::uint64_t otherNotifications_ = 0;
  std::map<capture::ObjectId, Stream> characteristics_;
  std::vector<StrapTime> connections_;
  std::uint64_t connectionCount_ = 0;
  std::vector<LinkLoss> linkLosses_;
  std::uint64_t linkLossCount_ = 0;
  std::vector<Gap> gaps_;
  std::uint64_t gapCount_ = 0;
  std::vector<Failure> failures_;
  std::uint64_t failureCount_ = 0;
};

}  // namespace Zephly::inspect
