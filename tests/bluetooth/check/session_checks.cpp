#include <tests/bluetooth/check/session_checks.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace Zephly::bluetooth_check {

namespace {

using namespace std::chrono_literals;

// As long as a broken link or a lost service may take to be mended on a loaded machine.
constexpr Seconds patience = 45s;
// Between two BlueZ ends more: the emulator shows an advertiser once each time that it is switched
// on, and where that one time was missed, the attempt to connect has to fail first, after 42 s.
constexpr Seconds longPatience = 120s;
// For what is on its way: as long as something still arrives, and this long after it.
constexpr Seconds drainTime = 2s;

constexpr const char* adapterPower =
    "dbus-send --system --print-reply --dest=org.bluez /org/bluez/hci0 "
    "org.freedesktop.DBus.Properties.Set string:org.bluez.Adapter1 string:Powered ";

// Who is connected, in its own eyes, and its last lines: was it told, and did it not do it?
constexpr const char* whatBluetoothdSays =
    "dbus-send --system --print-reply --dest=org.bluez / "
    "org.freedesktop.DBus.ObjectManager.GetManagedObjects | grep -A1 '\"Connected\"' >&2; "
    "tail -n 5 /out/bluetoothd.log >&2";

std::string powerCommand(bool on) {
  return std::string(adapterPower) + "variant:boolean:" + (on ? "true" : "false") + " >/dev/null";
}

}  // namespace

StrapControl commandedStrap(Stage& stage) {
  return {"/out/strap.log", [&stage] { stage.tell("strap", "stream off"); },
          [&stage] { stage.tell("strap", "stream on"); },
          [&stage] {
            stage.tell("strap", "raw temperature f63b0f3a");
            stage.tell("strap", "raw battery 840300");
          }};
}

StrapControl bluezStrap(Stage& stage) {
  return {"/out/bluez-strap.log", [&stage] { stage.run("kill -STOP $(cat /run/bluez-strap.pid)"); },
          [&stage] { stage.run("kill -CONT $(cat /run/bluez-strap.pid)"); }, [] {}};
}

SessionChecks::SessionChecks(Stage& stage, Report& report, StrapControl strap,
                             bluez::Options options)
    : stage_(stage), report_(report), strap_(std::move(strap)), log_(strap_.log) {
  options.releaseOn = {};
  bluetooth_ = std::make_unique<bluez::Bluetooth>(stage.queue(), std::move(options));
  probe_ = Probe::start();
}

bool SessionChecks::allStreams() {
  if (!probe_->connected()) return false;
  for (const simulator::Stream stream : simulator::allStreams) {
    if (probe_->received(stream) == 0) return false;
  }
  return true;
}

// Waits until the session has a new link on which all five streams are alive.
bool SessionChecks::recover(Seconds limit, Row& row) {
  const Seconds begin = stage_.now();
  bool nudged = false;
  const bool recovered = stage_.until(limit, [&] {
    if (!nudged && probe_->connected() && probe_->received(simulator::Stream::motion) > 0) {
      log_.refresh();
      if (!log_.links().empty() && log_.links().back().subscribed.size() == 5) {
        strap_.nudge();
        nudged = true;
      }
    }
    return allStreams();
  });
  row.recoveries.push_back(stage_.now() - begin);
  return recovered;
}

// The strap is silent, and what it has sent has arrived, as far as it does.
void SessionChecks::drain() {
  strap_.silence();
  const auto received = [this] {
    std::size_t all = 0;
    for (const simulator::Stream stream : simulator::allStreams) all += probe_->received(stream);
    return all;
  };
  std::size_t before = 0;
  do {
    before = received();
    stage_.pass(drainTime);
  } while (received() != before);
}

// Every link from the first on, each held against what the strap says that it sent on it. The end
// of a link takes what is on its way with it; the link that stands must be complete.
Tally SessionChecks::tallyOfLinks() {
  constexpr int looks = 5;
  Tally tally;
  // A strap that is stopped in the middle of its work has not said of everything yet that it was
  // sent: it gets another moment. What was delivered twice stays so.
  for (int i = 0; i < looks; ++i) {
    drain();
    tally = tallyNow();
    strap_.resume();
    if (tally.inOrder()) break;
  }
  return tally;
}

Tally SessionChecks::tallyNow() {
  log_.refresh();
  // Links of which nothing was sent are those that broke before the kit was told of them.
  std::vector<const StrapLink*> sent;
  for (const StrapLink& link : log_.links()) {
    if (!link.sent.empty()) sent.push_back(&link);
  }
  std::vector<const SeenLink*> seen;
  for (const SeenLink& link : probe_->links()) {
    if (!link.received.empty()) seen.push_back(&link);
  }
  Tally total;
  for (std::size_t i = 0; i < std::max(sent.size(), seen.size()); ++i) {
    static const Readings nothing;
    const Tally tally = compare(i < sent.size() ? sent[i]->sent : nothing,
                                i < seen.size() ? seen[i]->received : nothing);
    total += tally;
    // Of the links before, the last values may be lost with them.
    if (i + 1 == sent.size()) total.lost += tally.missing;
  }
  total.dropped = log_.dropped();
  return total;
}

// From the strap's sending to the session, of the waveforms on the link that stands.
std::string SessionChecks::latency() const {
  const StrapLink& sent = log_.links().back();
  const SeenLink& seen = probe_->links().back();
  std::vector<double> latencies;
  for (const simulator::Stream stream : {simulator::Stream::ecg, simulator::Stream::respiration}) {
    const auto& from = sent.sentAt.at(stream);
    const auto& to = seen.receivedAt.at(stream);
    for (std::size_t i = 0; i < std::min(from.size(), to.size()); ++i) {
      latencies.push_back((to[i] - from[i]) * 1e3);
    }
  }
  if (latencies.empty()) return "no latency";
  std::sort(latencies.begin(), latencies.end());
  return "latency " + fixed(latencies[latencies.size() / 2], 1) +
         " ms (99 %: " + fixed(latencies[latencies.size() * 99 / 100], 1) + " ms)";
}

void SessionChecks::begin() {
  Row row{.what = "found, connected, five streams"};
  row.passed = recover(patience, row);
  report_.add(std::move(row));
  atBegin_ = usageNow();
  beganAt_ = stage_.now();
}

void SessionChecks::fullRate(Seconds time) {
  Row row{.what = "full rate, " + fixed(time.count(), 0) + " s"};
  const auto before = probe_->links().back().received;
  const Usage usedBefore = usageNow();
  stage_.pass(time);
  const Usage used = usageNow();
  row.tally = tallyOfLinks();
  std::size_t values = 0;
  for (const auto& [stream, readings] : probe_->links().back().received) {
    const auto old = before.find(stream);
    values += readings.size() - (old == before.end() ? 0 : old->second.size());
  }
  const double perSecond = static_cast<double>(values) / time.count();
  const double cpu = (used.processor - usedBefore.processor).count() * 1e6 /
                     static_cast<double>(std::max<std::size_t>(values, 1));
  const Application& application = probe_->application();
  const std::size_t ecg = probe_->received(simulator::Stream::ecg);
  const std::size_t respiration = probe_->received(simulator::Stream::respiration);
  const bool through =
      application.ecgSamples == 6 * ecg && application.respirationSamples == 6 * respiration &&
      application.temperatures == probe_->received(simulator::Stream::temperature) &&
      application.batteries == probe_->received(simulator::Stream::battery);
  if (row.tally->received == 0 || row.tally->sent == 0) return report_.add(std::move(row));
  row.note = fixed(perSecond, 0) + " values/s, " + latency() + ", " + fixed(cpu, 0) +
             " ms of processor per 1000 values" +
             (through ? "" : ", not all reached the application");
  row.passed = row.tally->complete() && through && perSecond > 150;
  report_.add(std::move(row));
}

void SessionChecks::linkLosses(int count) {
  static constexpr std::array<std::pair<const char*, const char*>, 3> kinds = {{
      {"link ended by the strap", "disconnect 13"},
      {"link timed out", "disconnect 08"},
      {"strap out of reach", "vanish 1"},
  }};
  std::array<Row, kinds.size()> rows;
  for (std::size_t i = 0; i < kinds.size(); ++i) rows[i] = {.what = kinds[i].first, .passed = true};
  const std::size_t told = probe_->disconnections();
  for (int i = 0; i < count; ++i) {
    const std::size_t kind = static_cast<std::size_t>(i) % kinds.size();
    const std::size_t before = probe_->disconnections();
    stage_.tell("strap", kinds[kind].second);
    const bool once = stage_.until(patience, [&] { return probe_->disconnections() > before; });
    Row& row = rows[kind];
    row.passed = recover(patience, row) && once && row.passed;
  }
  for (Row& row : rows) {
    row.what = std::to_string(row.recoveries.size()) + " x " + row.what;
    report_.add(std::move(row));
  }
  Row row{.what = "over all " + std::to_string(count) + " losses", .tally = tallyOfLinks()};
  const std::size_t disconnections = probe_->disconnections() - told;
  row.passed = row.tally->inOrder() && probe_->unmatched() == 0 &&
               disconnections == static_cast<std::size_t>(count);
  row.note = std::to_string(disconnections) + " disconnections told";
  report_.add(std::move(row));
}

// Something happens to the service or the adapter, and is over when `cause` returns.
void SessionChecks::fault(const std::string& what, const std::function<void()>& cause,
                          Seconds limit) {
  Row row{.what = what};
  const std::size_t before = probe_->disconnections();
  cause();
  const bool told = stage_.until(patience, [&] { return probe_->disconnections() > before; });
  const bool recovered = recover(limit, row);
  const std::size_t times = probe_->disconnections() - before;
  row.tally = tallyOfLinks();
  row.passed = told && recovered && row.tally->inOrder() && probe_->unmatched() == 0;
  if (times != 1) row.note = std::to_string(times) + " disconnections told";
  if (!told) row.note = "no disconnection told";
  report_.add(std::move(row));
}

void SessionChecks::restarts() {
  fault(
      "bluetoothd restarted (TERM)",
      [this] { stage_.run("guest daemon stop TERM; guest daemon start"); }, patience);
  fault(
      "bluetoothd killed (KILL), back after 3 s",
      [this] { stage_.run("guest daemon stop KILL; sleep 3; guest daemon start"); }, patience);
  fault(
      "adapter off for 2 s",
      [this] {
        stage_.run(powerCommand(false));
        stage_.pass(2s);
        stage_.run(powerCommand(true));
      },
      patience);
  fault(
      "controller pulled out for 3 s",
      [this] { stage_.run("guest controllers stop; sleep 3; guest controllers start"); }, patience);
}

void SessionChecks::oddStraps() {
  const auto drop = [this] { stage_.tell("strap", "disconnect 13"); };
  fault(
      "strap leaves during connection",
      [&] {
        stage_.tell("strap", "drop-at connection");
        drop();
      },
      patience);
  fault(
      "strap leaves during discovery",
      [&] {
        stage_.tell("strap", "drop-at discovery");
        drop();
      },
      patience);
  fault(
      "strap leaves during subscription",
      [&] {
        stage_.tell("strap", "drop-at subscription");
        drop();
      },
      patience);
  fault(
      "strap sends before it confirms the subscription",
      [&] {
        stage_.tell("strap", "early on");
        drop();
      },
      patience);
  stage_.tell("strap", "early off");

  Row refused{.what = "strap refuses one subscription"};
  stage_.tell("strap", "refuse motion 0e");
  drop();
  stage_.until(patience, [&] { return !probe_->connected(); });
  refused.passed = stage_.until(patience, [&] {
    return probe_->received(simulator::Stream::ecg) > 100 &&
           probe_->received(simulator::Stream::respiration) > 100;
  });
  refused.passed = refused.passed && probe_->received(simulator::Stream::motion) == 0;
  refused.note = "the others go on";
  report_.add(std::move(refused));
  stage_.tell("strap", "refuse none");
  fault("and accepts it again", drop, patience);

  fault(
      "strap freezes during discovery",
      [&] {
        // So that everything has to be discovered again.
        stage_.run("guest daemon stop TERM; rm -rf /var/lib/bluetooth/*");
        stage_.tell("strap", "freeze-at discovery");
        stage_.run("guest daemon start");
      },
      90s);
}

void SessionChecks::oddSizes(const std::vector<std::size_t>& sizes) {
  Row row{.what = "values of"};
  drain();
  const std::size_t before = probe_->received(simulator::Stream::ecg);
  for (const std::size_t size : sizes) {
    stage_.tell("strap", "raw ecg " + std::string(2 * size, '1'));
    row.what += ' ' + std::to_string(size);
  }
  row.what += " bytes";
  row.passed = stage_.until(
      10s, [&] { return probe_->received(simulator::Stream::ecg) == before + sizes.size(); });
  row.tally = tallyOfLinks();
  row.passed = row.passed && row.tally->inOrder();
  report_.add(std::move(row));
}

void SessionChecks::bluezStrapLosses(int count) {
  Row row{.what = std::to_string(count) + " x link ended by the strap", .passed = true};
  const std::size_t told = probe_->disconnections();
  for (int i = 0; i < count; ++i) {
    const std::size_t before = told + static_cast<std::size_t>(i);
    stage_.run("kill -USR1 $(cat /run/bluez-strap.pid)");
    const bool once = stage_.until(longPatience, [&] { return probe_->disconnections() > before; });
    row.passed = recover(longPatience, row) && once && row.passed;
  }
  row.tally = tallyOfLinks();
  row.passed = row.passed && row.tally->inOrder() && probe_->unmatched() == 0 &&
               probe_->disconnections() == told + static_cast<std::size_t>(count);
  report_.add(std::move(row));
}

void SessionChecks::sharedRestarts() {
  fault(
      "bluetoothd of both ends restarted (TERM)",
      [this] { stage_.run("guest daemon stop TERM; guest daemon start"); }, longPatience);
  // The controller goes on advertising: the session may be connected before the strap has
  // registered its services with the next bluetoothd.
  fault(
      "bluetoothd of both ends killed (KILL), back after 3 s",
      [this] { stage_.run("guest daemon stop KILL; sleep 3; guest daemon start"); }, longPatience);
}

void SessionChecks::strangers() {
  Row row{.what = "strangers with nearly the strap's name"};
  stage_.run("guest strap start stranger1 --name zephly --address C4:11:22:33:44:66");
  stage_.run("guest strap start stranger2 --name Zephly2 --address C4:11:22:33:44:77");
  StrapLog first("/out/stranger1.log");
  StrapLog second("/out/stranger2.log");
  // While the strap itself is away, so that nothing keeps the adapter from connecting to others.
  stage_.tell("strap", "advertise off");
  stage_.tell("strap", "disconnect 13");
  stage_.pass(8s);
  stage_.tell("strap", "advertise on");
  const bool recovered = recover(patience, row);
  first.refresh();
  second.refresh();
  row.passed = recovered && first.count("ready") == 1 && second.count("ready") == 1 &&
               first.links().empty() && second.links().empty();
  row.note = "never connected";
  report_.add(std::move(row));
  stage_.run("guest strap stop stranger1; guest strap stop stranger2");
}

void SessionChecks::usage() {
  Row row{.what = "memory, processor, threads"};
  probe_->forget();
  log_.restart();
  const Usage now = usageNow();
  const Seconds time = stage_.now() - beganAt_;
  const double processor = (now.processor - atBegin_.processor).count() / time.count();
  constexpr double kilobyte = 1024;
  row.note = "heap " + fixed(static_cast<double>(atBegin_.heap) / kilobyte, 0) + " -> " +
             fixed(static_cast<double>(now.heap) / kilobyte, 0) + " KiB, resident " +
             fixed(static_cast<double>(now.resident) / kilobyte, 0) + " KiB, " +
             fixed(100 * processor, 0) + " % of one processor over " + fixed(time.count(), 0) +
             " s, " + std::to_string(now.threads) + " thread";
  // What this program remembers of the link that stands is part of it.
  constexpr std::size_t allowed = std::size_t{2} * 1024 * 1024;
  row.passed = now.threads == 1 && now.heap < atBegin_.heap + allowed;
  report_.add(std::move(row));
}

void SessionChecks::leave() {
  Row row{.what = "the program goes: the strap is free"};
  log_.refresh();
  bluetooth_.reset();
  const Seconds begin = stage_.now();
  row.passed = stage_.until(patience, [&] {
    log_.refresh();
    return !log_.links().empty() && !log_.links().back().end.empty();
  });
  row.recoveries.push_back(stage_.now() - begin);
  if (!row.passed) stage_.run(whatBluetoothdSays);
  report_.add(std::move(row));
}

}  // namespace Zephly::bluetooth_check
