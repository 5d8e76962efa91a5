// SPDX-License-Identifier: MIT
#include <capture/tap_notes.h>

#include <utility>

namespace Zephly::capture {

TapNotes::TapNotes(TapOptions options)
    : options_(std::move(options)),
      processor_(options_.freezeProcessorClock ? setProcessorClock([this] { return frozenTime_; })
                                               : ProcessorClock(processorClock)) {
  frozenTime_ = processor_();
}

void TapNotes::note(Report report) {
  if (!open_) return;
  frozenTime_ = processor_();
  options_.sink({{options_.now(), options_.wall(), frozenTime_}, std::move(report)});
}

ObjectId TapNotes::idOf(const std::shared_ptr<NSObject>& object) {
  const auto found = known_.find(object.get());
  // A new object may have the address of one that has been destroyed.
  if (found != known_.end() && !found->second.object.expired()) return found->second.id;
  // Entries of former connections are dropped here: the list grows only where a new object appears.
  std::erase_if(known_, [](const auto& entry) { return entry.second.object.expired(); });
  const ObjectId id = newId();
  known_[object.get()] = {object, id};
  return id;
}

ErrorText textOf(const std::shared_ptr<const NSError>& error) {
  if (!error) return std::nullopt;
  return error->localizedDescription();
}

}  // namespace Zephly::capture
