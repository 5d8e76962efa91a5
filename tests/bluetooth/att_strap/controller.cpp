// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/controller.h>

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace Zephly::att_strap {

using main_queue::FileDescriptor;

namespace {

Bytes packetOf(std::uint16_t opcode, BytesView parameters) {
  Bytes bytes = {packet::command};
  append16(bytes, opcode);
  bytes.push_back(static_cast<std::uint8_t>(parameters.size()));
  append(bytes, parameters);
  return bytes;
}

}  // namespace

FileDescriptor openEmulated(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) return {};
  std::memcpy(address.sun_path, path.data(), path.size());
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  // The system call requires the cast.
  const auto* place = reinterpret_cast<const sockaddr*>(&address);
  if (socket.get() < 0 || ::connect(socket.get(), place, sizeof(address)) != 0) return {};
  return socket;
}

Controller::Controller(main_queue::MainQueue& queue, FileDescriptor socket, Handlers handlers)
    : socket_(std::move(socket)), handlers_(std::move(handlers)) {
  watch_ = queue.watch(socket_.get(), main_queue::Interest::read, [this] { receive(); });
}

void Controller::command(std::uint16_t opcode, BytesView parameters, Reply reply) {
  add({opcode, packetOf(opcode, parameters), 1, std::move(reply)});
}

void Controller::commandTwice(std::uint16_t opcode, BytesView first, BytesView second) {
  Bytes packets = packetOf(opcode, first);
  append(packets, packetOf(opcode, second));
  add({opcode, std::move(packets), 2, {}});
}

void Controller::add(Command command) {
  commands_.push_back(std::move(command));
  if (commands_.size() == 1) sendFirstCommand();
}

void Controller::sendFirstCommand() {
  if (!commands_.empty()) send(commands_.front().packets);
}

void Controller::sendData(std::uint16_t handleAndFlags, BytesView payload) {
  Bytes bytes = {packet::data};
  append16(bytes, handleAndFlags);
  append16(bytes, static_cast<std::uint16_t>(payload.size()));
  append(bytes, payload);
  send(bytes);
}

// Blocks while the buffer of the socket is full, which is brief.
void Controller::send(BytesView packet) {
  while (!packet.empty() && !gone_) {
    const ssize_t sent = ::send(socket_.get(), packet.data(), packet.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return fail();
    packet = packet.subspan(static_cast<std::size_t>(sent));
  }
}

void Controller::receive() {
  std::array<std::uint8_t, 4096> buffer{};
  const ssize_t count = ::recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count <= 0) return fail();
  reader_.take(BytesView(buffer).first(static_cast<std::size_t>(count)));
  while (const auto whole = reader_.next()) handle(*whole);
  if (reader_.lost()) fail();
}

void Controller::fail() {
  if (std::exchange(gone_, true)) return;
  watch_.cancel();
  handlers_.gone();
}

void Controller::handle(const Bytes& packet) {
  const BytesView bytes(packet);
  if (packet[0] == packet::data) {
    handlers_.data(number16(bytes, 1), bytes.subspan(5));
  } else {
    handleEvent(packet[1], bytes.subspan(3));
  }
}

void Controller::handleEvent(std::uint8_t code, BytesView parameters) {
  // Complete: number of commands allowed, opcode, what it returned. Status: status, number, opcode.
  if (code == hci_event::commandComplete && parameters.size() >= 3) {
    commandAnswered(number16(parameters, 1), parameters.subspan(3));
  } else if (code == hci_event::commandStatus && parameters.size() >= 4) {
    commandAnswered(number16(parameters, 2), parameters.first(1));
  } else {
    handlers_.event(code, parameters);
  }
}

void Controller::commandAnswered(std::uint16_t opcode, BytesView parameters) {
  if (commands_.empty() || commands_.front().opcode != opcode) return;
  if (--commands_.front().answers > 0) return;
  const Command answered = std::move(commands_.front());
  commands_.pop_front();
  sendFirstCommand();
  if (answered.reply) answered.reply(parameters);
}

}  // namespace Zephly::att_strap
