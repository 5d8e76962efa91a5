// SPDX-License-Identifier: MIT
#include <tools/common/text_stream.h>
#include <tools/watch/pace.h>

#include <chrono>

namespace Zephly::watch {

namespace {

// The lag behind real time from which it is reported.
constexpr std::chrono::seconds noticeable{1};

}  // namespace

std::string paceText(double speed, StrapTime behind) {
  tools::TextStream text;
  if (speed != 1) text << "speed " << speed;
  if (behind > speed * noticeable) text << " (this machine is slower)";
  return text.str();
}

}  // namespace Zephly::watch
