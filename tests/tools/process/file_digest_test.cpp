// SPDX-License-Identifier: MIT
#include <tests/support/captures.h>
#include <tools/process/file_digest.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Zephly::processing {
namespace {

captures::Bytes bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

// The examples of FIPS 180-4, and more than one piece.
TEST(FileDigestTest, IsSha256) {
  const captures::ScratchDirectory scratch;
  const auto digest = [&](const std::string& text) {
    return digestOf(scratch.file("a", bytesOf(text)), [](std::uint64_t) {});
  };
  EXPECT_EQ(digest("").sha256, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(digest("abc").sha256,
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  const FileDigest million = digest(std::string(1'000'000, 'a'));
  EXPECT_EQ(million.bytes, 1'000'000U);
  EXPECT_EQ(million.sha256, "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(FileDigestTest, ReportsHowFarItIs) {
  const captures::ScratchDirectory scratch;
  std::uint64_t calls = 0;
  std::uint64_t last = 0;
  static_cast<void>(
      digestOf(scratch.file("a", captures::Bytes(1'000'000)), [&](std::uint64_t bytes) {
        EXPECT_GT(bytes, last);
        last = bytes;
        ++calls;
      }));
  EXPECT_EQ(last, 1'000'000U);
  EXPECT_GE(calls, 4U);
}

TEST(FileDigestTest, RefusesWhatIsNoFile) {
  const captures::ScratchDirectory scratch;
  EXPECT_THROW(digestOf(scratch / "none", [](std::uint64_t) {}), std::runtime_error);
  EXPECT_THROW(digestOf(scratch.path(), [](std::uint64_t) {}), std::runtime_error);
}

}  // namespace
}  // namespace Zephly::processing
