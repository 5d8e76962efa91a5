// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The options of `zephly view`.

#include <tools/view/server.h>
#include <tools/watch/source_options.h>

#include <boost/asio/ip/address.hpp>

#include <cstdint>
#include <optional>

namespace CLI {
class App;
}

namespace Zephly::view {

struct Options {
  watch::SourceOptions source;
  std::uint16_t port = ServerOptions::defaultPort;      ///< 0: any free port
  std::optional<boost::asio::ip::address> listen;       ///< empty: this machine only
  std::size_t viewerQueue = ViewerQueue::defaultLimit;  ///< bytes that wait for one viewer
  bool open = false;                                    ///< show the page in the browser
  bool exitAtEnd = false;                               ///< when the source ends
};

/// Declares the options on `command`; parsing writes them into `options`, which must live as long.
/// A wrong value ends the parsing with a CLI::ParseError of one line.
void addOptions(CLI::App& command, Options& options);

}  // namespace Zephly::view
