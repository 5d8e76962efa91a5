// SPDX-License-Identifier: MIT
#include <tools/process/manifest.h>

#include <hosts/main_queue/file_descriptor.h>
#include <tools/common/json_object.h>
#include <tools/common/version_text.h>
#include <tools/process/hdf5_writer.h>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Zephly::processing {

namespace {

using nlohmann::json;
using tools::JsonArray;
using tools::JsonObject;

// Changes when the files of a result change without a change of the version.
constexpr int manifestFormat = 1;
constexpr std::size_t longestManifest = 1U << 20;

JsonArray digestsJson(const std::vector<NamedDigest>& files) {
  JsonArray array;
  for (const NamedDigest& file : files) {
    array.add(JsonObject()
                  .add("name", file.name)
                  .add("bytes", file.digest.bytes)
                  .add("sha256", file.digest.sha256));
  }
  return array;
}

// A name that leads out of the directory is none.
bool isPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

std::vector<NamedDigest> digestsOf(const json& array) {
  std::vector<NamedDigest> files;
  for (const json& one : array) {
    files.push_back({.name = one.at("name").get<std::string>(),
                     .digest = {.bytes = one.at("bytes").get<std::uint64_t>(),
                                .sha256 = one.at("sha256").get<std::string>()}});
    if (!isPlainName(files.back().name)) throw std::runtime_error("not a name");
  }
  return files;
}

std::optional<std::uint64_t> sizeOf(const std::filesystem::path& file) {
  struct stat status {};
  if (::lstat(file.c_str(), &status) < 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace

std::string Manifest::text() const {
  return JsonObject()
             .add("format", manifestFormat)
             .add("program", program)
             .add("options", JsonObject()
                                 .add("hdf5", forms.hdf5)
                                 .add("edf", forms.edf)
                                 .add("edfDiscontinuous", forms.edfDiscontinuous)
                                 .add("csv", forms.csv))
             .add("input", digestsJson(input))
             .add("outputs", digestsJson(outputs))
             .text() +
         "\n";
}

Manifest newManifest(Forms forms, std::vector<NamedDigest> input) {
  // Versions of HDF5 write different bytes.
  const std::string library = forms.hdf5 ? " with HDF5 " + hdf5Version() : std::string();
  return {.program = tools::programName() + library,
          .forms = forms,
          .input = std::move(input),
          .outputs = {}};
}

std::optional<std::string> smallFile(const std::filesystem::path& file, std::size_t limit) {
  const main_queue::FileDescriptor opened(
      ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  if (opened.get() < 0 && (errno == ENOENT || errno == ENOTDIR || errno == ELOOP)) {
    return std::nullopt;
  }
  struct stat status {};
  if (opened.get() < 0 || ::fstat(opened.get(), &status) < 0) throw cannotRead(file, errno);
  if (!S_ISREG(status.st_mode) || static_cast<std::uint64_t>(status.st_size) > limit) {
    return std::nullopt;
  }
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = ::read(opened.get(), text.data() + done, text.size() - done);
    if (count < 0 && errno != EINTR) throw cannotRead(file, errno);
    if (count == 0) break;
    if (count > 0) done += static_cast<std::size_t>(count);
  }
  text.resize(done);
  return text;
}

std::optional<Manifest> readManifest(const std::filesystem::path& directory) {
  const auto text = smallFile(directory / manifestName, longestManifest);
  if (!text) return std::nullopt;
  try {
    const json manifest = json::parse(*text);
    if (manifest.at("format") != manifestFormat) return std::nullopt;
    const json& options = manifest.at("options");
    return Manifest{.program = manifest.at("program").get<std::string>(),
                    .forms = {.hdf5 = options.at("hdf5").get<bool>(),
                              .edf = options.at("edf").get<bool>(),
                              .edfDiscontinuous = options.at("edfDiscontinuous").get<bool>(),
                              .csv = options.at("csv").get<bool>()},
                    .input = digestsOf(manifest.at("input")),
                    .outputs = digestsOf(manifest.at("outputs"))};
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

bool outputsHaveTheirSizes(const Manifest& manifest, const std::filesystem::path& directory) {
  return std::all_of(manifest.outputs.begin(), manifest.outputs.end(),
                     [&](const NamedDigest& output) {
                       return sizeOf(directory / output.name) == output.digest.bytes;
                     });
}

bool outputsHaveTheirDigests(const Manifest& manifest, const std::filesystem::path& directory,
                             const std::function<void()>& read) {
  if (!outputsHaveTheirSizes(manifest, directory)) return false;
  return std::all_of(
      manifest.outputs.begin(), manifest.outputs.end(), [&](const NamedDigest& output) {
        return digestOf(directory / output.name, [&](std::uint64_t /*bytes*/) { read(); }) ==
               output.digest;
      });
}

}  // namespace Zephly::processing
