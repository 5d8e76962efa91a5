// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The environment that the kit runs in. An application chooses its host in one line, before it
/// creates a session; a host's own constructor or `use` function calls Host::use.
///
///   class MyRadio : public Zephly::Host {
///    public:
///     MyRadio() { Zephly::Host::use(this); }
///     ~MyRadio() override { Zephly::Host::leave(this); }
///     std::shared_ptr<CBCentralManager> createCentralManager(...) override;
///   };
///
/// One host is in use at a time in a process; called on the main queue's thread only.

#include <zephly/platform/cb_central_manager.h>
#include <zephly/platform/export.h>

#include <memory>
#include <optional>
#include <string_view>

namespace Zephly {

/// Base class of all hosts.
class ZEPHLY_EXPORT Host {
 public:
  virtual ~Host() = default;

  /// A new central of this host; never empty. Must not call the delegate before it returns.
  /// The arguments are those of CBCentralManager::init. The central may outlive the host, and is
  /// then without a radio.
  virtual std::shared_ptr<CBCentralManager> createCentralManager(
      std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
      const std::optional<CBOptions>& options) = 0;

  /// Makes `host` the current host and replaces the previous one. It is not owned.
  static void use(Host* host);
  /// Ends the use of `host`; does nothing when another host is in use.
  static void leave(const Host* host);
  /// The host in use, or null.
  static Host* current();
  /// The names of the hosts in this build, separated by ", "; "none" when there are none.
  static std::string_view available();

 protected:
  Host() = default;
  Host(const Host&) = default;
  Host& operator=(const Host&) = default;
};

}  // namespace Zephly
