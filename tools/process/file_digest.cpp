// SPDX-License-Identifier: MIT
#include <tools/process/file_digest.h>

#include <capture/text.h>
#include <hosts/main_queue/file_descriptor.h>

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <new>
#include <system_error>
#include <vector>

namespace Zephly::processing {

namespace {

constexpr std::size_t pieceSize = 1U << 18;

std::runtime_error cannotRead(const std::filesystem::path& file, const std::string& reason) {
  return std::runtime_error("cannot read " + capture::printable(file.string()) + ": " + reason);
}

class Sha256 {
 public:
  Sha256() : context_(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {
    if (!context_) throw std::bad_alloc();
    check(EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr));
  }

  void take(const unsigned char* bytes, std::size_t count) {
    check(EVP_DigestUpdate(context_.get(), bytes, count));
  }

  std::string finish() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    check(EVP_DigestFinal_ex(context_.get(), digest.data(), &length));
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (unsigned i = 0; i < length; ++i) {
      text += digits[digest.at(i) >> 4U];
      text += digits[digest.at(i) & 15U];
    }
    return text;
  }

 private:
  // Fails without memory, or where the system's configuration forbids the algorithm.
  static void check(int result) {
    if (result != 1) throw std::runtime_error("OpenSSL does not compute SHA-256 on this system");
  }

  std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context_;
};

}  // namespace

std::runtime_error cannotRead(const std::filesystem::path& file, int errorNumber) {
  return cannotRead(file, std::generic_category().message(errorNumber));
}

FileDigest digestOf(const std::filesystem::path& file,
                    const std::function<void(std::uint64_t bytes)>& read) {
  // Not blocked by a pipe without a writer.
  const main_queue::FileDescriptor opened(::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (opened.get() < 0) throw cannotRead(file, errno);
  struct stat status {};
  if (::fstat(opened.get(), &status) < 0) throw cannotRead(file, errno);
  if (!S_ISREG(status.st_mode)) throw cannotRead(file, "not a regular file");
  Sha256 sha256;
  FileDigest digest;
  std::vector<unsigned char> piece(pieceSize);
  while (true) {
    const ssize_t count = ::read(opened.get(), piece.data(), piece.size());
    if (count < 0 && errno != EINTR) throw cannotRead(file, errno);
    if (count == 0) break;
    if (count < 0) continue;
    sha256.take(piece.data(), static_cast<std::size_t>(count));
    digest.bytes += static_cast<std::uint64_t>(count);
    read(digest.bytes);
  }
  digest.sha256 = sha256.finish();
  return digest;
}

}  // namespace Zephly::processing
