#include <capture/tap_notes.h>

#include <utility>

namespace Zephly::capture {

std::uint64_t TapNotes::frozen = 0;

TapNotes::TapNotes(TapOptions options, ProcessorClock processor)
    : options_(std::move(options)), processor_(processor) {
  frozen = processor_();
}

void TapNotes::note(decltype(Record::what) what) {
  if (!open_) return;
  frozen = processor_();
  options_.sink({{options_.now(), options_.wall(), frozen}, std::move(what)});
}

ObjectId TapNotes::idOf(const std::shared_ptr<NSObject>& object) {
  const auto found = known_.find(object.get());
  // Another object may stand where one was that is gone.
  if (found != known_.end() && !found->second.object.expired()) return found->second.id;
  // Those of links that are gone: few, and only where a new one has come.
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
