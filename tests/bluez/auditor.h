#pragma once
/// @file
/// The auditor for the host on BlueZ.

#include <tests/support/host_auditor.h>

namespace bluez_test {

class Auditor final : public HostAuditor {
 public:
  int refusals = 0;  ///< subscriptions that were answered with an error

 protected:
  void didSubscribe(const std::shared_ptr<const NSError>& error) override {
    if (error) ++refusals;
  }
  void didEnd(const std::shared_ptr<const NSError>& error) override {
    EXPECT_TRUE(error && !error->localizedDescription().empty()) << "every end has its reason";
  }
};

}  // namespace bluez_test
