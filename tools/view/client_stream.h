// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The stream of a client, with a limit on what a viewer sends in total.
///
///   stream.rate_policy().limit(1024 * 1024, stream.socket());
///
/// Beast answers pings and joins the fragments of a message without calling back, so that a client
/// which sends nothing else would keep the program busy for as long as it likes.

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <boost/beast/core/rate_policy.hpp>

#include <cstddef>
#include <limits>

namespace Zephly::view {

/// A rate policy of Beast, which here limits the sum of all bytes read: after it the socket is shut
/// down, and reading ends with an error.
class InputBudget {
 public:
  /// Counts from now on. `socket` must live as long as the stream.
  void limit(std::size_t bytes, boost::asio::ip::tcp::socket& socket) {
    left_ = bytes;
    socket_ = &socket;
  }

 private:
  friend class boost::beast::rate_policy_access;

  static constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

  std::size_t available_read_bytes() const noexcept { return unlimited; }
  std::size_t available_write_bytes() const noexcept { return unlimited; }
  void transfer_read_bytes(std::size_t count) noexcept {
    if (socket_ == nullptr) return;
    if (count <= left_) {
      left_ -= count;
      return;
    }
    boost::system::error_code ignored;  // the client has closed already
    socket_->shutdown(boost::asio::ip::tcp::socket::shutdown_both, ignored);
  }
  void transfer_write_bytes(std::size_t /*count*/) noexcept {}
  void on_timer() noexcept {}

  boost::asio::ip::tcp::socket* socket_ = nullptr;
  std::size_t left_ = 0;
};

using ClientStream =
    boost::beast::basic_stream<boost::asio::ip::tcp, boost::asio::any_io_executor, InputBudget>;

}  // namespace Zephly::view
