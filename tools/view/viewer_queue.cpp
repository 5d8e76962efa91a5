// SPDX-License-Identifier: MIT
#include <tools/view/viewer_queue.h>

#include <tools/view/texts.h>

#include <utility>

namespace Zephly::view {

void ViewerQueue::push(const Message& message) {
  Waiting waiting{++lastPlace_, message};
  bytes_ += message.bytes->size();
  switch (message.kind) {
    case Message::Kind::samples:
      samples_.push_back(std::move(waiting));
      break;
    case Message::Kind::state:
      // The old state is superseded: that does not count as dropped.
      if (!state_.empty()) bytes_ -= state_.front().message.bytes->size();
      state_.clear();
      state_.push_back(std::move(waiting));
      break;
    case Message::Kind::other:
      others_.push_back(std::move(waiting));
      break;
  }
  limitBytes();
}

// Samples first: they are most of the bytes, and the page shows their gap. Events are dropped only
// when no samples are left; the state never.
void ViewerQueue::limitBytes() {
  while (bytes_ > limit_ && !samples_.empty()) dropOldest(samples_);
  while (bytes_ > limit_ && !others_.empty()) dropOldest(others_);
}

void ViewerQueue::dropOldest(std::deque<Waiting>& messages) {
  const Message& oldest = messages.front().message;
  bytes_ -= oldest.bytes->size();
  unreportedSamples_[static_cast<std::size_t>(oldest.trace)] += oldest.samples;
  ++unreportedMessages_;
  ++dropped_;
  messages.pop_front();
}

std::optional<Message> ViewerQueue::next() {
  if (auto loss = takeLoss()) return loss;
  std::deque<Waiting>* first = nullptr;
  for (auto* messages : {&samples_, &others_, &state_}) {
    if (messages->empty()) continue;
    if (first == nullptr || messages->front().place < first->front().place) first = messages;
  }
  if (first == nullptr) return std::nullopt;
  Message message = std::move(first->front().message);
  first->pop_front();
  bytes_ -= message.bytes->size();
  return message;
}

std::optional<Message> ViewerQueue::takeLoss() {
  if (unreportedMessages_ == 0) return std::nullopt;
  Message message = textMessage(
      Message::Kind::other,
      lostText(std::exchange(unreportedMessages_, 0), std::exchange(unreportedSamples_, {})));
  return message;
}

}  // namespace Zephly::view
