// SPDX-License-Identifier: MIT
#include <tests/support/captures.h>
#include <tools/process/work_list.h>

#include <CLI/CLI.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Zephly::processing {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> namesOf(const std::vector<WorkItem>& items) {
  std::vector<std::string> names;
  for (const WorkItem& item : items) names.push_back(item.name);
  return names;
}

TEST(WorkListTest, NamesAResultAfterItsCapture) {
  EXPECT_EQ(resultName("captures/walk.zcap"), "walk");
  EXPECT_EQ(resultName("walk.2.zcap"), "walk.2");
  EXPECT_EQ(resultName("walk.bin"), "walk.bin");
}

TEST(WorkListTest, BeginsWithTheLargest) {
  const captures::ScratchDirectory scratch;
  const auto small = scratch.file("a.zcap", captures::Bytes(10));
  const auto large = scratch.file("b.zcap", captures::Bytes(30));
  const auto equal = scratch.file("c.zcap", captures::Bytes(30));
  EXPECT_THAT(namesOf(workList({small, equal, scratch / "none.zcap", large})),
              ElementsAre("b", "c", "a", "none"));
}

TEST(WorkListTest, RefusesEqualNames) {
  try {
    static_cast<void>(workList({"one/walk.zcap", "other/walk.zcap"}));
    FAIL();
  } catch (const CLI::ValidationError& error) {
    EXPECT_THAT(error.what(), HasSubstr("one/walk.zcap and other/walk.zcap have the same name"));
  }
  EXPECT_THROW(static_cast<void>(workList({"walk.zcap", "./walk.zcap"})), CLI::ValidationError);
}

TEST(WorkListTest, RefusesNamesThatCannotBeThoseOfAResult) {
  for (const char* name : {"..zcap", "...zcap", "cohort.csv.zcap", "walk.part-4711.zcap", "a/"}) {
    EXPECT_THROW(static_cast<void>(workList({name})), CLI::ValidationError) << name;
  }
}

}  // namespace
}  // namespace Zephly::processing
