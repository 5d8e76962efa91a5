// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Writes tables of columns to an HDF5 file (The HDF Group, HDF5 File Format Specification, 3.0),
/// piece by piece.
///
///   Hdf5Writer file(path, temporary);
///   const Hdf5Group ecg = file.group("ecg");
///   Hdf5Column<float> values(ecg, "ecg_mV", "mV");
///   values.append(0.25F);
///   values.finish();
///   file.complete();
///
/// The same calls give the same bytes, with one version of the HDF5 library: the file has no times.
/// Columns are chunked and compressed (shuffled, then deflate at its quickest level). Memory is
/// limited to one chunk for each column.
///
/// Every function throws std::runtime_error, one line with the file's name and the system's reason,
/// when the file cannot be written. Not thread-safe.

#include <hdf5.h>

#include <concepts>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

namespace Zephly::processing {

/// "1.10.8": the library that is used.
std::string hdf5Version();

/// Owns an identifier of the library.
class Hdf5Id {
 public:
  Hdf5Id() = default;
  explicit Hdf5Id(hid_t id) : id_(id) {}
  Hdf5Id(Hdf5Id&& other) noexcept;
  Hdf5Id& operator=(Hdf5Id&& other) noexcept;
  Hdf5Id(const Hdf5Id&) = delete;
  Hdf5Id& operator=(const Hdf5Id&) = delete;
  ~Hdf5Id();

  hid_t get() const { return id_; }

 private:
  hid_t id_ = -1;
};

class Hdf5Writer;

/// A group of a file, which must live as long.
class Hdf5Group {
 public:
  void attribute(const char* name, const std::string& text) const;
  void attribute(const char* name, std::int64_t number) const;

 private:
  friend class Hdf5Writer;
  friend class Hdf5Dataset;
  Hdf5Group(const Hdf5Writer& file, Hdf5Id id) : file_(&file), id_(std::move(id)) {}

  const Hdf5Writer* file_;
  Hdf5Id id_;
};

/// A new file.
class Hdf5Writer {
 public:
  /// Writes `name`, which is called `path` in messages.
  Hdf5Writer(std::filesystem::path path, const std::filesystem::path& name);

  /// The outermost group.
  Hdf5Group root() const;
  Hdf5Group group(const char* name) const;

  /// Writes it through to the disk and closes it. No column or group may exist any more.
  void complete();

  /// `result` as it is; throws when it says that a call has failed.
  template <class Result>
  Result check(Result result) const {
    if (result < 0) fail();
    return result;
  }

 private:
  [[noreturn]] void fail() const;

  std::filesystem::path path_;
  std::filesystem::path name_;
  Hdf5Id file_;
};

/// What a number of a column is in the file.
template <std::same_as<float> Number>
hid_t hdf5Type() {
  return H5T_IEEE_F32LE;
}
template <std::same_as<double> Number>
hid_t hdf5Type() {
  return H5T_IEEE_F64LE;
}
template <std::same_as<std::int64_t> Number>
hid_t hdf5Type() {
  return H5T_STD_I64LE;
}
template <std::same_as<std::int8_t> Number>
hid_t hdf5Type() {
  return H5T_STD_I8LE;
}

/// One dimension that grows.
class Hdf5Dataset {
 public:
  static constexpr std::size_t chunk = 16'384;

  /// An attribute, where it is not empty.
  void attribute(const char* name, const std::string& text) const;

 protected:
  Hdf5Dataset(const Hdf5Group& group, const char* name, hid_t type);

  /// At most a chunk; all pieces but the last one are whole chunks.
  void write(const void* numbers, std::size_t count);

 private:
  const Hdf5Writer* file_;
  hid_t type_;
  Hdf5Id id_;
  std::uint64_t count_ = 0;
};

template <class Number>
class Hdf5Column : public Hdf5Dataset {
 public:
  /// `unit`: an attribute "units"; empty: the numbers have none.
  Hdf5Column(const Hdf5Group& group, const char* name, const std::string& unit = {})
      : Hdf5Dataset(group, name, hdf5Type<Number>()) {
    numbers_.reserve(chunk);
    attribute("units", unit);
  }

  void append(Number number) {
    numbers_.push_back(number);
    if (numbers_.size() == chunk) finish();
  }

  /// After the last number.
  void finish() {
    if (!numbers_.empty()) write(numbers_.data(), numbers_.size());
    numbers_.clear();
  }

 private:
  std::vector<Number> numbers_;
};

}  // namespace Zephly::processing
