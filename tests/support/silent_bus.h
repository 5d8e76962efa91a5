// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A socket that accepts connections like a message bus, and never answers.
///
///   SilentBus bus(directory + "/bus");
///   connectTo(bus.address());

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>
#include <utility>

class SilentBus {
 public:
  /// The path must not exist. The system accepts connections as soon as the socket listens.
  explicit SilentBus(std::string path)
      : path_(std::move(path)), socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    if (path_.size() >= sizeof address.sun_path) {
      throw std::system_error(ENAMETOOLONG, std::generic_category(), path_);
    }
    std::memcpy(address.sun_path, path_.data(), path_.size());
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    if (::bind(socket_, generic, sizeof address) != 0 || ::listen(socket_, 16) != 0) {
      throw std::system_error(errno, std::generic_category(), path_);
    }
  }
  SilentBus(const SilentBus&) = delete;
  SilentBus& operator=(const SilentBus&) = delete;
  /// Closes all connections.
  ~SilentBus() {
    ::close(socket_);
    ::unlink(path_.c_str());
  }

  std::string address() const { return "unix:path=" + path_; }

 private:
  std::string path_;
  int socket_;
};
