// SPDX-License-Identifier: MIT
#include <tests/schedules/schedule.h>

#include <simulator/random.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace schedules {

namespace {

using namespace std::chrono_literals;
using Zephly::simulator::Random;

struct Name {
  Action action;
  std::string_view name;
};

constexpr std::array<Name, actionCount> names = {{
    {Action::linkLoss, "the link is lost"},
    {Action::cutAtNextStep, "the link is cut at a step of the next connection"},
    {Action::powerOff, "the adapter is switched off"},
    {Action::adapterGone, "the adapter is unplugged"},
    {Action::serviceKilled, "bluetoothd is killed"},
    {Action::busLost, "the bus is lost"},
    {Action::busSilent, "the bus is silent"},
    {Action::slow, "messages are slow"},
    {Action::stalled, "messages are held back"},
    {Action::silent, "calls are ignored"},
    {Action::replyLost, "replies are lost"},
    {Action::refused, "calls are refused"},
    {Action::signalsTwice, "changes are signalled twice"},
    {Action::strapSilent, "the strap is silent"},
    {Action::foreignLink, "another program connects the strap"},
    {Action::foreignSignals, "another program sends the signals of bluetoothd"},
    {Action::wallClockStep, "the wall clock is set"},
    {Action::diskFull, "the disk is full"},
    {Action::diskInterrupted, "system calls are interrupted"},
    {Action::diskShort, "writes are short"},
    {Action::readerStalls, "the reader of the output stalls"},
    {Action::viewerOpens, "a viewer opens the page"},
    {Action::viewerLeaves, "a viewer leaves"},
    {Action::viewersStall, "viewers read nothing"},
    {Action::rubbish, "a client breaks the protocol"},
    {Action::allocationFails, "an allocation fails"},
    {Action::endSignal, "SIGTERM"},
}};

Duration milliseconds(double count) {
  return std::chrono::milliseconds(static_cast<std::int64_t>(count));
}

bool concernsFiles(Action action) {
  return action == Action::diskFull || action == Action::diskInterrupted ||
         action == Action::diskShort;
}

bool concernsViewers(Action action) {
  return action == Action::viewerOpens || action == Action::viewerLeaves ||
         action == Action::viewersStall || action == Action::rubbish;
}

bool applies(Action action, Command command) {
  if (concernsViewers(action)) return command == Command::view;
  // The destructors of the JSON library allocate, and abort the program when they cannot.
  if (action == Action::allocationFails) return command != Command::view;
  if (action == Action::endSignal) return command != Command::application;
  if (concernsFiles(action)) return command == Command::record;
  if (action == Action::readerStalls) return command == Command::monitor;
  return true;
}

// Most disturbances are short, some last as long as a time limit of the host.
Duration lengthOf(Random& random) {
  switch (random.below(8)) {
    case 0:
      return milliseconds(random.uniform(5'000, 20'000));
    case 1:
    case 2:
      return milliseconds(random.uniform(1'000, 5'000));
    default:
      return milliseconds(random.uniform(1, 1'000));
  }
}

// What ends the program leaves little of the other steps.
bool usuallyEnds(Action action) {
  return action == Action::endSignal || action == Action::allocationFails;
}

// Of the steps of a view every second one concerns viewers: the others suffice for connections.
bool isChosen(Random& random, Action action, Command command) {
  if (!applies(action, command)) return false;
  if (usuallyEnds(action)) return random.below(3) == 0;
  return command != Command::view || concernsViewers(action) || random.below(4) == 0;
}

Step anyStep(Random& random, Command command) {
  Step step;
  do {
    step.action = names.at(random.below(names.size())).action;
  } while (!isChosen(random, step.action, command));
  step.length = lengthOf(random);
  switch (step.action) {
    case Action::cutAtNextStep:
      step.value = static_cast<int>(random.below(14));
      break;
    case Action::slow:
      step.value = static_cast<int>(random.below(4) == 0 ? random.below(3'000) : random.below(200));
      break;
    case Action::refused:
      step.value = static_cast<int>(random.below(4));
      break;
    case Action::wallClockStep:
      step.value = static_cast<int>(random.below(20'000)) - 10'000;
      break;
    case Action::diskInterrupted:
    case Action::diskShort:
      step.value = 1 + static_cast<int>(random.below(4));
      break;
    case Action::viewerOpens:
      step.value = random.below(3) == 0 ? 20 + static_cast<int>(random.below(400)) : 0;
      break;
    case Action::viewerLeaves:
      step.value = static_cast<int>(random.below(3));
      break;
    case Action::viewersStall:
      // Until more waits than a queue holds.
      step.length = milliseconds(random.uniform(500, 20'000));
      break;
    case Action::rubbish:
      step.value = static_cast<int>(random.below(8));
      break;
    case Action::allocationFails:
      // As often one of the next ten as one of the next thousand.
      step.value = 1 + static_cast<int>(random.below(std::uint64_t{1} << (1 + random.below(13))));
      break;
    default:
      break;
  }
  return step;
}

// The host may wait for the longest of its limits when a reply never comes: 90 s for a connection,
// and 60 s for what follows. Otherwise its longest pause and the slowest message decide.
Duration calmAfter(const Schedule& schedule) {
  // Long enough for viewers to receive what waits for them; whether the strap is connected again is
  // left to the other commands, because the page's work for each second costs much.
  if (schedule.command == Command::view) return 5s;
  const bool unanswered = schedule.has(Action::silent) || schedule.has(Action::replyLost) ||
                          schedule.has(Action::cutAtNextStep);
  return unanswered ? Duration(200s) : Duration(40s);
}

constexpr std::string_view byDescriptors = ", by descriptors";
constexpr std::string_view queueOf = ", a queue of ";

// Reads a line of Schedule::text() from its beginning.
class Words {
 public:
  explicit Words(const std::string& line) : line_(line), rest_(line) {}

  [[noreturn]] void refuse() const {
    throw std::runtime_error("not a line of a schedule: " + line_);
  }
  bool skip(std::string_view word) {
    if (!rest_.starts_with(word)) return false;
    rest_.remove_prefix(word.size());
    return true;
  }
  void expect(std::string_view word) {
    if (!skip(word)) refuse();
  }
  double number() {
    double value = 0;
    const auto result = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
    if (result.ec != std::errc()) refuse();
    rest_.remove_prefix(static_cast<std::size_t>(result.ptr - rest_.data()));
    return value;
  }

 private:
  const std::string& line_;
  std::string_view rest_;
};

// "  at 0.807 s: a viewer leaves (for 0.425 s, value 0)"; all times are whole milliseconds.
Step stepOf(const std::string& line) {
  Words words(line);
  const auto time = [&] { return milliseconds(std::round(words.number() * 1000)); };
  Step step;
  words.expect("  at ");
  step.at = time();
  words.expect(" s: ");
  const auto* const found = std::find_if(names.begin(), names.end(), [&](const Name& name) {
    return words.skip(std::string(name.name) + " (for ");
  });
  if (found == names.end()) words.refuse();
  step.action = found->action;
  step.length = time();
  words.expect(" s, value ");
  step.value = static_cast<int>(words.number());
  words.expect(")");
  return step;
}

}  // namespace

Schedule Schedule::ofSeed(std::uint64_t seed) {
  Random random(seed, 0x5C4ED);
  Schedule schedule;
  schedule.seed = seed;
  static constexpr std::array commands = {
      Command::application, Command::application, Command::record, Command::record,
      Command::monitor,     Command::monitor,     Command::view};
  schedule.command = commands.at(random.below(commands.size()));
  schedule.descriptors = random.below(4) == 0;
  schedule.viewerQueue = 1'500 + random.below(3'000);
  const std::size_t count = 1 + random.below(10);
  Duration at = milliseconds(random.uniform(0, 3'000));
  if (schedule.command == Command::view) {
    schedule.steps.push_back({milliseconds(random.uniform(0, 100)), Action::viewerOpens, {}, 0});
    at += milliseconds(100);
  }
  for (std::size_t i = 0; i < count; ++i) {
    Step step = anyStep(random, schedule.command);
    step.at = at;
    schedule.steps.push_back(step);
    if (step.action == Action::endSignal) break;
    // Close together as often as far apart, so that a step falls into what the last one caused.
    at += milliseconds(random.below(2) == 0 ? random.uniform(0, 300) : random.uniform(300, 6'000));
  }
  schedule.close();
  return schedule;
}

void Schedule::close() {
  Duration end = 3s;
  for (const Step& step : steps) end = std::max(end, step.at + step.length);
  calm = calmAfter(*this);
  // Whole milliseconds: --duration takes no more.
  duration = end + calm;
}

Schedule Schedule::with(const std::vector<std::size_t>& kept) const {
  Schedule result = *this;
  result.steps.clear();
  for (const std::size_t index : kept) result.steps.push_back(steps.at(index));
  result.close();
  return result;
}

bool Schedule::diskIsGood() const { return !has(Action::diskFull); }

bool Schedule::has(Action action) const {
  return std::any_of(steps.begin(), steps.end(),
                     [&](const Step& step) { return step.action == action; });
}

std::string Schedule::text() const {
  std::ostringstream text;
  const auto seconds = [](Duration time) { return std::chrono::duration<double>(time).count(); };
  text << "seed " << seed << ": " << nameOf(command) << (descriptors ? byDescriptors : "");
  if (command == Command::view) text << queueOf << viewerQueue << " bytes";
  text << ", " << seconds(duration) << " s\n";
  for (const Step& step : steps) {
    text << "  at " << seconds(step.at) << " s: " << nameOf(step.action) << " (for "
         << seconds(step.length) << " s, value " << step.value << ")\n";
  }
  return text.str();
}

Schedule Schedule::ofText(const std::string& text) {
  Schedule schedule;
  std::istringstream lines(text);
  bool begun = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line.front() == '#') continue;
    if (std::exchange(begun, true)) {
      schedule.steps.push_back(stepOf(line));
    } else {
      schedule.begin(line);
    }
  }
  if (!begun) throw std::runtime_error("a schedule without a line");
  schedule.close();
  return schedule;
}

// The length of the run follows from the steps.
void Schedule::begin(const std::string& line) {
  Words words(line);
  words.expect("seed ");
  seed = static_cast<std::uint64_t>(words.number());
  words.expect(": ");
  bool found = false;
  for (const Command each :
       {Command::application, Command::record, Command::monitor, Command::view}) {
    if (found || !words.skip(nameOf(each))) continue;
    command = each;
    found = true;
  }
  if (!found) words.refuse();
  descriptors = words.skip(byDescriptors);
  if (command != Command::view) return;
  words.expect(queueOf);
  viewerQueue = static_cast<std::size_t>(words.number());
}

std::string_view nameOf(Action action) {
  const auto* found = std::find_if(names.begin(), names.end(),
                                   [&](const Name& name) { return name.action == action; });
  return found->name;
}

std::string_view nameOf(Command command) {
  switch (command) {
    case Command::application:
      return "an application";
    case Command::record:
      return "zephly record";
    case Command::monitor:
      return "zephly monitor --json";
    case Command::view:
      break;
  }
  return "zephly view";
}

}  // namespace schedules
