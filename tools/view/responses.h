// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The server's answers to requests, independent of the network.
///
///   const Reply reply = replyTo(request, access, assets, full);
///   if (reply.becomesViewer()) viewer->accept(request);
///   else send(*reply.response);

#include <tools/view/access.h>
#include <tools/view/assets.h>
#include <tools/view/viewer.h>

#include <boost/beast/http/message_generator.hpp>
#include <boost/beast/http/status.hpp>

#include <optional>
#include <span>
#include <string_view>

namespace Zephly::view {

/// Either a response, or the client may become a viewer.
struct Reply {
  std::optional<boost::beast::http::message_generator> response;
  /// The request is valid, and has the token where one is needed.
  bool authorized = false;
  bool becomesViewer() const { return !response.has_value(); }
};

/// The answer to a complete request. `full`: the limit of viewers is reached.
Reply replyTo(const Request& request, const Access& access, std::span<const Asset> assets,
              bool full);

/// The answer to an invalid request; closes the connection.
boost::beast::http::message_generator refusal(boost::beast::http::status status);

}  // namespace Zephly::view
