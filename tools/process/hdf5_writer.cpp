// SPDX-License-Identifier: MIT
#include <tools/process/hdf5_writer.h>

#include <hosts/main_queue/file_descriptor.h>
#include <tools/common/output_path.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace Zephly::processing {

namespace {

constexpr unsigned deflateLevel = 1;

// Before any other call. At the end of the process the library would close again what it could not
// write, which fails again and has ended the process with a segmentation fault (1.10.8).
void initialize() {
  static const bool once = [] {
    ::H5dont_atexit();
    ::H5open();
    ::H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    return true;
  }();
  static_cast<void>(once);
}

// The error of the system, from "...errno = 28, error message = 'No space left on device'...", or
// the description of the innermost error.
herr_t findReason(unsigned /*index*/, const H5E_error2_t* error, void* found) {
  std::string& reason = *static_cast<std::string*>(found);
  const std::string_view text = error->desc == nullptr ? "" : error->desc;
  constexpr std::string_view mark = "error message = '";
  const std::size_t begin = text.find(mark);
  if (begin != std::string_view::npos) {
    const std::size_t from = begin + mark.size();
    reason = text.substr(from, text.find('\'', from) - from);
    return 1;  // no further
  }
  if (reason.empty()) reason = text;
  return 0;
}

}  // namespace

std::string hdf5Version() {
  initialize();
  unsigned major = 0;
  unsigned minor = 0;
  unsigned release = 0;
  ::H5get_libversion(&major, &minor, &release);
  return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(release);
}

Hdf5Id::Hdf5Id(Hdf5Id&& other) noexcept : id_(std::exchange(other.id_, -1)) {}

Hdf5Id& Hdf5Id::operator=(Hdf5Id&& other) noexcept {
  std::swap(id_, other.id_);
  return *this;
}

Hdf5Id::~Hdf5Id() {
  if (id_ >= 0) ::H5Idec_ref(id_);
}

Hdf5Writer::Hdf5Writer(std::filesystem::path path, const std::filesystem::path& name)
    : path_(std::move(path)), name_(name) {
  initialize();
  const Hdf5Id creation(check(::H5Pcreate(H5P_FILE_CREATE)));
  check(::H5Pset_obj_track_times(creation.get(), false));
  file_ = Hdf5Id(check(::H5Fcreate(name.c_str(), H5F_ACC_EXCL, creation.get(), H5P_DEFAULT)));
}

Hdf5Group Hdf5Writer::root() const {
  return {*this, Hdf5Id(check(::H5Gopen2(file_.get(), "/", H5P_DEFAULT)))};
}

Hdf5Group Hdf5Writer::group(const char* name) const {
  const Hdf5Id creation(check(::H5Pcreate(H5P_GROUP_CREATE)));
  check(::H5Pset_obj_track_times(creation.get(), false));
  return {*this,
          Hdf5Id(check(::H5Gcreate2(file_.get(), name, H5P_DEFAULT, creation.get(), H5P_DEFAULT)))};
}

void Hdf5Writer::complete() {
  check(::H5Fflush(file_.get(), H5F_SCOPE_GLOBAL));
  check(::H5Fclose(file_.get()));
  static_cast<void>(std::exchange(file_, Hdf5Id()));
  const main_queue::FileDescriptor written(::open(name_.c_str(), O_RDONLY | O_CLOEXEC));
  // EINVAL: the file system does not support fsync(); the data were written all the same.
  if (written.get() < 0 || (::fsync(written.get()) < 0 && errno != EINVAL)) {
    throw tools::cannotWrite(path_, errno);
  }
}

void Hdf5Writer::fail() const {
  std::string reason;
  ::H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, findReason, &reason);
  throw tools::cannotWrite(path_, reason.empty() ? "HDF5 failed" : reason);
}

namespace {

void writeAttribute(const Hdf5Writer& file, hid_t owner, const char* name, hid_t type,
                    const void* value) {
  const Hdf5Id space(file.check(::H5Screate(H5S_SCALAR)));
  const Hdf5Id attribute(
      file.check(::H5Acreate2(owner, name, type, space.get(), H5P_DEFAULT, H5P_DEFAULT)));
  file.check(::H5Awrite(attribute.get(), type, value));
}

void writeAttribute(const Hdf5Writer& file, hid_t owner, const char* name,
                    const std::string& text) {
  if (text.empty()) return;
  const Hdf5Id type(file.check(::H5Tcopy(H5T_C_S1)));
  file.check(::H5Tset_size(type.get(), text.size()));
  file.check(::H5Tset_strpad(type.get(), H5T_STR_NULLPAD));
  file.check(::H5Tset_cset(type.get(), H5T_CSET_UTF8));
  writeAttribute(file, owner, name, type.get(), text.data());
}

}  // namespace

void Hdf5Group::attribute(const char* name, const std::string& text) const {
  writeAttribute(*file_, id_.get(), name, text);
}

void Hdf5Group::attribute(const char* name, std::int64_t number) const {
  writeAttribute(*file_, id_.get(), name, H5T_STD_I64LE, &number);
}

Hdf5Dataset::Hdf5Dataset(const Hdf5Group& group, const char* name, hid_t type)
    : file_(group.file_), type_(type) {
  const hsize_t none = 0;
  const hsize_t unlimited = H5S_UNLIMITED;
  const hsize_t chunkSize = chunk;
  const Hdf5Id space(file_->check(::H5Screate_simple(1, &none, &unlimited)));
  const Hdf5Id creation(file_->check(::H5Pcreate(H5P_DATASET_CREATE)));
  file_->check(::H5Pset_obj_track_times(creation.get(), false));
  file_->check(::H5Pset_chunk(creation.get(), 1, &chunkSize));
  file_->check(::H5Pset_shuffle(creation.get()));
  file_->check(::H5Pset_deflate(creation.get(), deflateLevel));
  // Only whole chunks are written, which need no cache.
  const Hdf5Id access(file_->check(::H5Pcreate(H5P_DATASET_ACCESS)));
  file_->check(::H5Pset_chunk_cache(access.get(), 1, 0, 1));
  id_ = Hdf5Id(file_->check(::H5Dcreate2(group.id_.get(), name, type, space.get(), H5P_DEFAULT,
                                         creation.get(), access.get())));
}

void Hdf5Dataset::attribute(const char* name, const std::string& text) const {
  writeAttribute(*file_, id_.get(), name, text);
}

void Hdf5Dataset::write(const void* numbers, std::size_t count) {
  const hsize_t from = count_;
  const hsize_t length = count;
  count_ += count;
  const hsize_t size = count_;
  file_->check(::H5Dset_extent(id_.get(), &size));
  const Hdf5Id space(file_->check(::H5Dget_space(id_.get())));
  file_->check(
      ::H5Sselect_hyperslab(space.get(), H5S_SELECT_SET, &from, nullptr, &length, nullptr));
  const Hdf5Id memory(file_->check(::H5Screate_simple(1, &length, nullptr)));
  file_->check(::H5Dwrite(id_.get(), type_, memory.get(), space.get(), H5P_DEFAULT, numbers));
}

}  // namespace Zephly::processing
