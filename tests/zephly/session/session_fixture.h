// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A session on a fake Bluetooth, with an application that records all events.

#include <tests/support/captured_output.h>
#include <tests/support/fake_bluetooth.h>
#include <tests/support/recorded_events.h>
#include <tests/support/repetitions.h>
#include <tests/support/session_test_access.h>
#include <zephly/session/zephly.h>

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

using Access = SessionTestAccess;

class ZephlyTest : public testing::Test {
 protected:
  void TearDown() override { Access::release(*session); }

  void respiration(const std::vector<float>& samples) {
    strapEvents(*session).didReceiveRespiration(samples);
  }

  repetitions::Sink motion() {
    return [this](float qw, float qx, float qy, float qz, float ax, float ay, float az) {
      strapEvents(*session).didReceiveIMUValues(qw, qx, qy, qz, ax, ay, az);
    };
  }

  // What the session wrote without the trace lines of the exercise detector ("number, number").
  std::string linesWithoutTrace() const {
    std::istringstream lines(output.text());
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
      if (line.find(',') == std::string::npos) kept += line + "\n";
    }
    return kept;
  }

  fake::World world;
  CapturedOutput output;
  recorded::Log log;
  std::shared_ptr<recorded::Application> application = std::make_shared<recorded::Application>(log);
  std::shared_ptr<::Zephly::Zephly> session = ::Zephly::Zephly::init(application);
};
