// SPDX-License-Identifier: MIT
// `zephly --licenses`: the license of the program and those of the libraries in it.

#include <tests/support/process.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(LicensesTest, TheProgramsOwnLicenseComesFirst) {
  const Finished run = runProgram({"--licenses"});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.errors, IsEmpty());
  EXPECT_THAT(run.output,
              testing::StartsWith("MIT License\n\nCopyright (c) 2026 the Zephly authors\n\n"
                                  "Permission is hereby granted"));
}

TEST(LicensesTest, EachLibraryHasItsLicense) {
  const std::string output = runProgram({"--licenses"}).output;
  std::vector<std::pair<std::string, std::string>> libraries = {
      {"CLI11", "Neither the name of the University"},
      {"JSON for Modern C++", "Niels Lohmann"},
      {"Boost", "Boost Software License - Version 1.0"},
      {"EDFlib", "Teunis van Beelen"},
      {"sdbus-c++", "KISTLER"}};
  if (ZEPHLY_HAS_PAGE) libraries.emplace_back("uPlot", "Leon Sorokin");
  for (const auto& [name, words] : libraries) {
    const std::size_t begin = output.find("\n== " + name + " ==\n");
    ASSERT_NE(begin, std::string::npos) << name;
    const std::string section = output.substr(begin, output.find("\n== ", begin + 1) - begin);
    EXPECT_THAT(section, HasSubstr(words));
  }
}

TEST(LicensesTest, GoWithoutASubcommand) {
  EXPECT_EQ(runProgram({"--licenses=no"}).exitCode, 2);
  EXPECT_EQ(runProgram({"--licenses", "dance"}).exitCode, 2);
}

TEST(LicensesTest, AFullDiskIsOneLineAndExitCode1) {
  Process process({"--licenses"}, Process::Output::full);
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre("zephly: standard output: No space left on device"));
}

}  // namespace
