// SPDX-License-Identifier: MIT
#include <tests/soak/ledger.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <sstream>
#include <utility>

namespace soak {

std::uint64_t processorTime = 0;

namespace {

using Zephly::Exercise;
using Zephly::Stream;
using Bytes = std::array<std::uint8_t, 20>;

// A second implementation of the decoding of a frame.

std::uint32_t littleEndian(const Bytes& bytes, std::size_t first, std::size_t width) {
  std::uint32_t value = 0;
  for (std::size_t i = width; i-- > 0;) value = value * 256 + bytes.at(first + i);
  return value;
}

std::uint32_t bigEndian(const Bytes& bytes, std::size_t first, std::size_t width) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < width; ++i) value = value * 256 + bytes.at(first + i);
  return value;
}

float sampleAt(const Bytes& bytes, std::size_t index) {
  auto raw = static_cast<std::int32_t>(littleEndian(bytes, 3 * index, 3));
  if (raw >= 0x800000) raw -= 0x1000000;
  return static_cast<float>(raw) * 0x1p-23F * 2.42F;
}

float celsiusAt(const Bytes& bytes, std::size_t first) {
  const float kelvin = static_cast<float>(littleEndian(bytes, first, 2)) * 0.02F;
  return kelvin - 273.15F;
}

float componentAt(const Bytes& bytes, std::size_t index) {
  return static_cast<float>(static_cast<std::int16_t>(bigEndian(bytes, 2 * index, 2))) / 16384.0F;
}

float accelerationAt(const Bytes& bytes, std::size_t index) {
  return static_cast<float>(static_cast<std::int32_t>(bigEndian(bytes, 8 + 4 * index, 4))) /
         65536.0F;
}

bool sameBits(float left, float right) {
  return std::bit_cast<std::uint32_t>(left) == std::bit_cast<std::uint32_t>(right);
}

std::uint64_t microseconds(Zephly::StrapTime time) {
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

template <Exercise exercise>
void note(void* due) {
  static_cast<std::deque<Exercise>*>(due)->push_back(exercise);
}

}  // namespace

Ledger::Ledger() {
  motion_.setJumpCallback(note<Exercise::jump>, &dueRepetitions_);
  motion_.setSitUpCallback(note<Exercise::sitUp>, &dueRepetitions_);
  motion_.setPushUpCallback(note<Exercise::pushUp>, &dueRepetitions_);
}

// The strap's side -------------------------------------------------------------------------------

void Ledger::sent(const simulator::Frame& frame) {
  Entry entry{frame.time, frame.stream, {}};
  if (frame.bytes.size() > entry.bytes.size()) fail("a frame of more than 20 bytes was sent");
  std::copy(frame.bytes.begin(), frame.bytes.end(), entry.bytes.begin());
  ++framesSent_;
  accountOf(entry).sent += static_cast<std::uint64_t>(streamInfo(frame.stream).samplesPerFrame);
  log_.push_back(entry);
  passSilentOnes();
}

void Ledger::linkLost() {
  ++linkLosses_.sent;
  log_.push_back({});
  passSilentOnes();
}

// The delegates ----------------------------------------------------------------------------------

void Ledger::attachApplication(bool linkIsUp) {
  settle();
  application_ = true;
  linkIsUp_ = linkIsUp;
}

void Ledger::detachApplication() {
  application_ = false;
  passSilentOnes();
}

void Ledger::attachTrainer() {
  settle();
  trainer_ = true;
}

void Ledger::detachTrainer() {
  trainer_ = false;
  passSilentOnes();
}

void Ledger::settle() const {
  if (!log_.empty()) fail("nothing is under way any more");
}

// Entries without a receiver ---------------------------------------------------------------------

void Ledger::passSilentOnes() {
  while (!log_.empty() && passSilentStep()) {
  }
}

// Consumes one step of the first entry if it needs no call. False when it needs one.
bool Ledger::passSilentStep() {
  const Entry& entry = log_.front();
  if (!entry.stream) {
    step_ = Step::value;
    if (application_) return false;
    ++linkLosses_.withoutDelegate;
    finishSample(1);
    return true;
  }
  switch (step_) {
    case Step::unknown:
      if (*entry.stream == Stream::respiration) {
        openRespirationSample();
      } else if (*entry.stream == Stream::motion) {
        openMotion();
      } else {
        step_ = Step::value;
      }
      return true;
    case Step::leadoff:
      if (application_) return false;
      ++leadoffChanges_.withoutDelegate;
      step_ = Step::respiration;
      return true;
    case Step::repetitions:
      if (!dueRepetitions_.empty() && trainer_) return false;
      repetitions_.withoutDelegate += dueRepetitions_.size();
      dueRepetitions_.clear();
      // Of motion the application receives only repetitions.
      ++accountOf(entry).received;
      finishSample(1);
      return true;
    case Step::value:
    case Step::respiration:
      if (application_) return false;
      ++accountOf(entry).withoutDelegate;
      finishStep();
      return true;
  }
  return false;
}

void Ledger::finishStep() {
  finishSample(static_cast<std::size_t>(streamInfo(*log_.front().stream).samplesPerFrame));
}

void Ledger::finishSample(std::size_t samples) {
  step_ = Step::unknown;
  if (++sample_ < samples) return;
  sample_ = 0;
  log_.pop_front();
}

void Ledger::openRespirationSample() {
  const Entry& entry = log_.front();
  const std::uint64_t now = std::exchange(processorTime, microseconds(entry.time));
  const bool contact = breathing_.contact(sampleAt(entry.bytes, sample_));
  processorTime = now;
  step_ = Step::respiration;
  if (contact_ != contact) {
    step_ = Step::leadoff;
    offNext_ = !contact;
    ++leadoffChanges_.sent;
    if (contact_ && !contact) ++contactsLost_;
  }
  contact_ = contact;
}

void Ledger::openMotion() {
  const Bytes& bytes = log_.front().bytes;
  motion_.imu(componentAt(bytes, 0), componentAt(bytes, 1), componentAt(bytes, 2),
              componentAt(bytes, 3), accelerationAt(bytes, 0), accelerationAt(bytes, 1),
              accelerationAt(bytes, 2));
  repetitions_.sent += dueRepetitions_.size();
  step_ = Step::repetitions;
}

// Calls of the delegates --------------------------------------------------------------------------

Ledger::Entry& Ledger::expect(const char* what, Stream stream, Step step) {
  if (log_.empty() || log_.front().stream != stream || step_ != step) {
    fail(std::string(what) + " was reported");
  }
  if (!linkIsUp_ && step != Step::repetitions)
    fail(std::string(what) + " was reported without a link");
  return log_.front();
}

void Ledger::connected() {
  if (!application_ || !log_.empty() || linkIsUp_) fail("a connection was reported");
  linkIsUp_ = true;
  ++connectsReported_;
}

void Ledger::disconnected() {
  if (!application_ || log_.empty() || log_.front().stream || !linkIsUp_) {
    fail("a disconnection was reported");
  }
  linkIsUp_ = false;
  ++linkLosses_.received;
  finishSample(1);
  passSilentOnes();
}

void Ledger::leadoff(bool off) {
  expect("a change of contact", Stream::respiration, Step::leadoff);
  if (off != offNext_) fail("the opposite change of contact was reported");
  ++leadoffChanges_.received;
  step_ = Step::respiration;
}

void Ledger::ecg(float sample) {
  Entry& entry = expect("an ECG sample", Stream::ecg, Step::value);
  if (!sameBits(sample, sampleAt(entry.bytes, sample_))) fail("another ECG sample was reported");
  ++accountOf(entry).received;
  finishStep();
  passSilentOnes();
}

void Ledger::respiration(float sample) {
  Entry& entry = expect("a respiration sample", Stream::respiration, Step::respiration);
  if (!sameBits(sample, breathing_.breath(sampleAt(entry.bytes, sample_)))) {
    fail("another respiration sample was reported");
  }
  ++accountOf(entry).received;
  finishStep();
  passSilentOnes();
}

void Ledger::temperature(float object, float ambient, float body) {
  Entry& entry = expect("a temperature", Stream::temperature, Step::value);
  if (!sameBits(object, celsiusAt(entry.bytes, 0)) ||
      !sameBits(ambient, celsiusAt(entry.bytes, 2)) || !sameBits(body, 0.0F)) {
    fail("another temperature was reported");
  }
  ++accountOf(entry).received;
  finishStep();
  passSilentOnes();
}

void Ledger::battery(BatteryStatus status) {
  Entry& entry = expect("a battery report", Stream::battery, Step::value);
  const float percent = static_cast<float>(littleEndian(entry.bytes, 0, 2)) / 10.0F;
  if (!sameBits(status.soc, percent) || status.inCharge != (entry.bytes.at(2) != 0)) {
    fail("another battery report was reported");
  }
  ++accountOf(entry).received;
  finishStep();
  passSilentOnes();
}

void Ledger::repetition(Exercise exercise) {
  expect("a repetition", Stream::motion, Step::repetitions);
  if (dueRepetitions_.front() != exercise) fail("another repetition was reported");
  dueRepetitions_.pop_front();
  ++repetitions_.received;
  passSilentOnes();
}

// Errors -----------------------------------------------------------------------------------------

Account& Ledger::accountOf(const Entry& entry) {
  return accounts_.at(static_cast<std::size_t>(*entry.stream));
}

std::string Ledger::expected() const {
  if (log_.empty()) return "nothing";
  std::ostringstream text;
  const Entry& entry = log_.front();
  if (!entry.stream) {
    text << "the end of the link";
  } else {
    text << "what follows from value " << sample_ + 1 << " of the frame of "
         << streamInfo(*entry.stream).name << " sent at "
         << std::chrono::duration<double>(entry.time).count() << " s";
  }
  text << " (and " << log_.size() - 1 << " later)";
  return text.str();
}

void Ledger::fail(const std::string& what) const {
  throw Wrong(what + " where the strap's log says: " + expected());
}

}  // namespace soak
