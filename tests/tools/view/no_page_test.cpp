// SPDX-License-Identifier: MIT
// The program built without Node.js.

#include <tests/support/process.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(NoPageTest, ViewReportsTheMissingPageAndExitsWithCode1) {
  const Finished run = runProgram({"view", "--simulated", "--duration", "1", "--port", "0"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_THAT(run.errorLines(),
              ElementsAre("zephly view: this program was built without Node.js and has no page; "
                          "install nodejs 18 or newer with npm and build it again"));
}

TEST(NoPageTest, ReportWritesNothingAndExitsWithCode1) {
  const Finished run = runProgram({"report", "walk.zcap", "--out", "/nonexistent/walk.html"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_THAT(run.errorLines(),
              ElementsAre(HasSubstr("was built without Node.js and has no page")));
}

TEST(NoPageTest, EverythingElseWorks) {
  EXPECT_EQ(runProgram({"view", "--help"}).exitCode, 0);
  const Finished run =
      runProgram({"monitor", "--simulated", "--duration", "1", "--speed", "1000", "--json"});
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("\"summary\""));
}

}  // namespace
