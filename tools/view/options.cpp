// SPDX-License-Identifier: MIT
#include <tools/view/options.h>

#include <tools/common/option_values.h>

#include <CLI/CLI.hpp>

#include <string>

namespace Zephly::view {

namespace {

using tools::addFlag;
using tools::addValue;

std::uint16_t port(const std::string& text) {
  const auto number = tools::parseNumber<std::uint16_t>(text);
  if (!number) tools::rejectValue("--port", "a number from 0 to 65535", text);
  return *number;
}

std::size_t queueBytes(const std::string& text) {
  const auto number = tools::parseNumber<std::size_t>(text);
  if (!number) tools::rejectValue("--viewer-queue", "a number of bytes", text);
  return *number;
}

boost::asio::ip::address address(const std::string& text) {
  boost::system::error_code error;
  auto address = boost::asio::ip::make_address(text, error);
  if (error) tools::rejectValue("--listen", "an address like 192.168.1.5, 0.0.0.0 or ::", text);
  return address;
}

}  // namespace

void addOptions(CLI::App& command, Options& options) {
  watch::addSourceOptions(command, options.source, watch::Captures::offered);
  addValue(command, "--port", "N",
           "The page's port (default " + std::to_string(ServerOptions::defaultPort) +
               "; 0: any free port)",
           [&](const std::string& text) { options.port = port(text); });
  addValue(command, "--listen", "ADDRESS",
           "Serve the page on this address (0.0.0.0 or :: for all) to everyone with the access "
           "token that is printed (default: to every user of this machine, without a token)",
           [&](const std::string& text) { options.listen = address(text); });
  // Without a group an option is not in the help text: for tests.
  addValue(command, "--viewer-queue", "BYTES", "Bytes that may wait for one viewer",
           [&](const std::string& text) { options.viewerQueue = queueBytes(text); })
      ->group("");
  addFlag(command, "--open", options.open, "Show the page in the browser");
  addFlag(command, "--exit-at-end", options.exitAtEnd,
          "End with the session; otherwise the page stays");
}

}  // namespace Zephly::view
