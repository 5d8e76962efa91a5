// SPDX-License-Identifier: MIT
#include <tools/common/output_path.h>

#include <capture/writer.h>
#include <tests/support/captures.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

namespace Zephly::tools {
namespace {

using captures::ScratchDirectory;
using testing::HasSubstr;

std::string messageOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

class OutputPathTest : public testing::Test {
 protected:
  const ScratchDirectory scratch_;
  // In a path without links of its own.
  std::filesystem::path folder_ = std::filesystem::canonical(scratch_.path());
  std::filesystem::path file_ = scratch_.file("walk.zcap", {'a'});
};

TEST_F(OutputPathTest, AFileOrANewNameIsItself) {
  EXPECT_EQ(outputTarget(file_), file_);
  EXPECT_EQ(outputTarget("new.zcap"), "new.zcap");
  EXPECT_EQ(outputTarget(folder_ / "no/such/folder"), folder_ / "no/such/folder");
}

TEST_F(OutputPathTest, LinksAreFollowedToTheLastTarget) {
  std::filesystem::create_symlink("walk.zcap", folder_ / "one");
  std::filesystem::create_symlink("one", folder_ / "two");
  EXPECT_EQ(outputTarget(folder_ / "two"), folder_ / "walk.zcap");
}

TEST_F(OutputPathTest, ALinkThatLeadsNowhereIsRefused) {
  std::filesystem::create_symlink("gone", folder_ / "broken");
  EXPECT_THAT(messageOf([&] { outputTarget(folder_ / "broken"); }),
              HasSubstr("broken: a symbolic link to a file that does not exist"));
  std::filesystem::create_symlink("circle", folder_ / "circle");
  EXPECT_THAT(messageOf([&] { outputTarget(folder_ / "circle"); }),
              HasSubstr("circle: Too many levels of symbolic links"));
}

TEST_F(OutputPathTest, AnInputIsRefusedByEveryName) {
  std::filesystem::create_symlink(file_, folder_ / "symbolic");
  std::filesystem::create_hard_link(file_, folder_ / "hard");
  for (const auto& name : {file_, folder_ / "symbolic", folder_ / "hard"}) {
    EXPECT_THAT(messageOf([&] { refuseInput(name, file_); }), HasSubstr("it is the input "))
        << name;
  }
  EXPECT_EQ(messageOf([&] { refuseInput(folder_ / "new", file_); }), "");
  EXPECT_EQ(messageOf([&] { refuseInput(file_, folder_ / "new"); }), "");
  EXPECT_THAT(messageOf([&] { refuseInput(folder_ / "new", folder_ / "." / "new"); }),
              HasSubstr("it is the input "))
      << "before it exists";
}

TEST_F(OutputPathTest, AFileThatContinuesTheInputIsRefused) {
  const auto record = [&](const char* name, std::optional<capture::Continuation> continues) {
    capture::Preamble preamble;
    preamble.began = std::chrono::seconds(7);
    preamble.continues = continues;
    capture::Writer writer(folder_ / name, preamble, {});
    writer.append({{}, capture::Connected{1}});
    EXPECT_EQ(writer.close(), std::nullopt);
    return folder_ / name;
  };
  const auto first = record("hike.zcap", std::nullopt);
  const auto second = record("hike.2.zcap", capture::Continuation{.part = 2});
  // The third part is lost.
  const auto fourth = record("hike.4.zcap", capture::Continuation{.part = 4});
  const auto other = record("hike.5.zcap", std::nullopt);
  std::filesystem::create_symlink(first, folder_ / "latest");
  for (const auto& input : {first, folder_ / "latest"}) {
    for (const auto& part : {second, fourth}) {
      EXPECT_EQ(messageOf([&] { refuseInput(part, input); }),
                "cannot write " + part.string() + ": it continues the input " + input.string());
    }
    EXPECT_EQ(messageOf([&] { refuseInput(other, input); }), "");
  }
  EXPECT_EQ(messageOf([&] { refuseInput(first, second); }), "");
}

}  // namespace
}  // namespace Zephly::tools
