// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A session with a connected strap on a minimal host: values are passed directly to the peripheral
/// handler, so that only the kit is measured.
///
///   ConnectedSession session;
///   session.deliver(Stream::ecg, value);
///
/// A session is never freed: it and its central manager own each other. Create few.

#include <zephly/session/zephly.h>

#include <tests/support/strap_host.h>
#include <bench/counting_application.h>
#include <bench/null_buffer.h>

#include <cstdint>
#include <memory>
#include <utility>

namespace bench {

class ConnectedSession {
 public:
  ConnectedSession() : session_(Zephly::Zephly::init(application_)) {
    session_->startWorkoutDetection(application_);
    host_.connect();
  }
  ConnectedSession(const ConnectedSession&) = delete;
  ConnectedSession& operator=(const ConnectedSession&) = delete;

  void deliver(Zephly::Stream stream, std::shared_ptr<const NSData> value) {
    host_.deliver(stream, std::move(value));
  }
  /// The calls that the application received.
  std::uint64_t calls() const { return application_->calls; }

 private:
  SilentOutput silent_;
  fake::StrapHost host_;
  std::shared_ptr<CountingApplication> application_ = std::make_shared<CountingApplication>();
  std::shared_ptr<Zephly::Zephly> session_;
};

}  // namespace bench
