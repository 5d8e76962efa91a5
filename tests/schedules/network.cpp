// SPDX-License-Identifier: MIT
#include <tests/schedules/network.h>

#include <tests/schedules/virtual_time.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace schedules {

namespace {

using Zephly::main_queue::FileDescriptor;

int latestServer = -1;
std::uint16_t serverPort = 0;

// A quarter of a second of a session fills what a reader does not take, in place of a minute.
constexpr int smallerBuffers = 8;

template <class... Arguments>
int systemCall(long number, Arguments... arguments) {
  return static_cast<int>(::syscall(number, arguments...));
}

// Addresses of local sockets say nothing.
int asAddress(int result, sockaddr* address, socklen_t* length) {
  if (result != 0 || !VirtualTime::driving() || address->sa_family != AF_UNIX) return result;
  sockaddr_in shown{};
  shown.sin_family = AF_INET;
  shown.sin_port = htons(serverPort);
  shown.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::memcpy(address, &shown, sizeof shown);
  *length = sizeof shown;
  return 0;
}

}  // namespace

std::uint16_t Network::port() { return serverPort; }

FileDescriptor Network::connect() {
  FileDescriptor client(
      systemCall(SYS_socket, AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  socklen_t length = sizeof address;
  if (systemCall(SYS_getsockname, latestServer, &address, &length) != 0 ||
      systemCall(SYS_connect, client.get(), &address, length) != 0) {
    return {};
  }
  return client;
}

}  // namespace schedules

// In place of those of the system, for Boost.Asio.
extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  using namespace schedules;
  const bool replaced = VirtualTime::driving() && domain == AF_INET;
  return systemCall(SYS_socket, replaced ? AF_UNIX : domain, type, replaced ? 0 : protocol);
}

int bind(int descriptor, const sockaddr* address, socklen_t length) noexcept {
  using namespace schedules;
  if (!VirtualTime::driving() || address->sa_family != AF_INET) {
    return systemCall(SYS_bind, descriptor, address, length);
  }
  // Without a name the system chooses one that is free.
  sockaddr_un anyName{};
  anyName.sun_family = AF_UNIX;
  const int result = systemCall(SYS_bind, descriptor, &anyName, sizeof anyName.sun_family);
  if (result == 0) {
    sockaddr_in wanted{};
    std::memcpy(&wanted, address, std::min<std::size_t>(length, sizeof wanted));
    latestServer = descriptor;
    serverPort = ntohs(wanted.sin_port);
  }
  return result;
}

int getsockname(int descriptor, sockaddr* address, socklen_t* length) noexcept {
  return schedules::asAddress(schedules::systemCall(SYS_getsockname, descriptor, address, length),
                              address, length);
}

int getpeername(int descriptor, sockaddr* address, socklen_t* length) noexcept {
  return schedules::asAddress(schedules::systemCall(SYS_getpeername, descriptor, address, length),
                              address, length);
}

int setsockopt(int descriptor, int level, int option, const void* value,
               socklen_t length) noexcept {
  using namespace schedules;
  int size = 0;
  if (VirtualTime::driving() && level == SOL_SOCKET && option == SO_SNDBUF &&
      length == sizeof size) {
    std::memcpy(&size, value, sizeof size);
    size /= smallerBuffers;
    value = &size;
  }
  return systemCall(SYS_setsockopt, descriptor, level, option, value, length);
}

}  // extern "C"
