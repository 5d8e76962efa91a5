// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The auditor for the host on BlueZ.

#include <tests/support/host_auditor.h>

namespace bluez_test {

class Auditor final : public HostAuditor {
 protected:
  void didEnd(const std::shared_ptr<const NSError>& error) override {
    EXPECT_TRUE(error && !error->localizedDescription().empty()) << "every end has its reason";
  }
};

}  // namespace bluez_test
