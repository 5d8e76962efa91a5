// SPDX-License-Identifier: MIT
#include <tests/bluetooth/check/session_checks.h>

#include <zephly/protocol/streams.h>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace Zephly::bluetooth_check {

namespace {

using namespace std::chrono_literals;

// The time limit for recovery from a lost link or service on a loaded machine.
constexpr Seconds patience = 45s;
// Longer between two BlueZ ends: the emulator reports an advertiser once each time that it is
// switched on. When that report is missed, the attempt to connect must fail first, after 42 s.
constexpr Seconds longPatience = 120s;
// Values in transit are awaited until nothing has arrived for this time.
constexpr Seconds drainTime = 2s;

constexpr const char* adapterPower =
    "dbus-send --system --print-reply --dest=org.bluez /org/bluez/hci0 "
    "org.freedesktop.DBus.Properties.Set string:org.bluez.Adapter1 string:Powered ";

// Diagnostics of a strap: its connection state and the last lines of its log, which show whether it
// received the command.
constexpr const char* whatBluetoothdSays =
    "dbus-send --system --print-reply --dest=org.bluez / "
    "org.freedesktop.DBus.ObjectManager.GetManagedObjects | grep -A1 '\"Connected\"' >&2; "
    "tail -n 5 /out/bluetoothd.log >&2";

std::string powerCommand(bool on) {
  return std::string(adapterPower) + "variant:boolean:" + (on ? "true" : "false") + " >/dev/null";
}

}  // namespace

StrapControl commandedStrap(Stage& stage) {
  return {"/out/strap.log", [&stage] { stage.command("strap", "stream off"); },
          [&stage] { stage.command("strap", "stream on"); },
          [&stage] {
            stage.command("strap", "raw temperature f63b0f3a");
            stage.command("strap", "raw battery 840300");
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
  for (const Stream stream : ::Zephly::allStreams) {
    if (probe_->received(stream) == 0) return false;
  }
  return true;
}

// Waits until the session has a new link on which all five streams deliver values.
bool SessionChecks::recover(Seconds limit, Row& row) {
  const Seconds begin = stage_.now();
  bool nudged = false;
  const bool recovered = stage_.until(limit, [&] {
    if (!nudged && probe_->connected() && probe_->received(Stream::motion) > 0) {
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

// Stops the strap's streams and waits until no more values arrive.
void SessionChecks::drain() {
  strap_.silence();
  const auto received = [this] {
    std::size_t all = 0;
    for (const Stream stream : ::Zephly::allStreams) all += probe_->received(stream);
    return all;
  };
  std::size_t before = 0;
  do {
    before = received();
    stage_.pass(drainTime);
  } while (received() != before);
}

// Compares every link since the first with the strap's log of it. Values in transit are lost at the
// end of a link; the current link must be complete.
Tally SessionChecks::tallyOfLinks() {
  constexpr int looks = 5;
  Tally tally;
  // A strap that is stopped while it sends may not have logged all sent values yet, so the
  // comparison is repeated. Duplicates remain in every repetition.
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
  // Links without sent values were lost before the kit was notified of them.
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
    // The last values of earlier links may be lost with the link.
    if (i + 1 == sent.size()) total.lost += tally.missing;
  }
  total.dropped = log_.dropped();
  return total;
}

// The latency from the strap to the session, for the waveforms of the current link.
std::string SessionChecks::latency() const {
  const StrapLink& sent = log_.links().back();
  const SeenLink& seen = probe_->links().back();
  std::vector<double> latencies;
  for (const Stream stream : {Stream::ecg, Stream::respiration}) {
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
  const std::size_t ecg = probe_->received(Stream::ecg);
  const std::size_t respiration = probe_->received(Stream::respiration);
  const bool through = application.ecgSamples == 6 * ecg &&
                       application.respirationSamples == 6 * respiration &&
                       application.temperatures == probe_->received(Stream::temperature) &&
                       application.batteries == probe_->received(Stream::battery);
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
  const std::size_t disconnectionsBefore = probe_->disconnections();
  for (int i = 0; i < count; ++i) {
    const std::size_t kind = static_cast<std::size_t>(i) % kinds.size();
    const std::size_t before = probe_->disconnections();
    stage_.command("strap", kinds[kind].second);
    const bool once = stage_.until(patience, [&] { return probe_->disconnections() > before; });
    Row& row = rows[kind];
    row.passed = recover(patience, row) && once && row.passed;
  }
  for (Row& row : rows) {
    row.what = std::to_string(row.recoveries.size()) + " x " + row.what;
    report_.add(std::move(row));
  }
  Row row{.what = "over all " + std::to_string(count) + " losses", .tally = tallyOfLinks()};
  const std::size_t disconnections = probe_->disconnections() - disconnectionsBefore;
  row.passed = row.tally->inOrder() && probe_->unmatched() == 0 &&
               disconnections == static_cast<std::size_t>(count);
  row.note = std::to_string(disconnections) + " disconnections reported";
  report_.add(std::move(row));
}

// A fault of the service or the adapter, which is over when `cause` returns.
void SessionChecks::fault(const std::string& what, const std::function<void()>& cause,
                          Seconds limit) {
  Row row{.what = what};
  const std::size_t before = probe_->disconnections();
  cause();
  const bool notified = stage_.until(patience, [&] { return probe_->disconnections() > before; });
  const bool recovered = recover(limit, row);
  const std::size_t times = probe_->disconnections() - before;
  row.tally = tallyOfLinks();
  row.passed = notified && recovered && row.tally->inOrder() && probe_->unmatched() == 0;
  if (times != 1) row.note = std::to_string(times) + " disconnections reported";
  if (!notified) row.note = "no disconnection reported";
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
  const auto drop = [this] { stage_.command("strap", "disconnect 13"); };
  fault(
      "strap leaves during connection",
      [&] {
        stage_.command("strap", "drop-at connection");
        drop();
      },
      patience);
  fault(
      "strap leaves during discovery",
      [&] {
        stage_.command("strap", "drop-at discovery");
        drop();
      },
      patience);
  fault(
      "strap leaves during subscription",
      [&] {
        stage_.command("strap", "drop-at subscription");
        drop();
      },
      patience);
  fault(
      "strap sends before it confirms the subscription",
      [&] {
        stage_.command("strap", "early on");
        drop();
      },
      patience);
  stage_.command("strap", "early off");

  Row refused{.what = "strap refuses one subscription"};
  stage_.command("strap", "refuse motion 0e");
  drop();
  stage_.until(patience, [&] { return !probe_->connected(); });
  refused.passed = stage_.until(patience, [&] {
    return probe_->received(Stream::ecg) > 100 && probe_->received(Stream::respiration) > 100;
  });
  refused.passed = refused.passed && probe_->received(Stream::motion) == 0;
  refused.note = "the others continue";
  report_.add(std::move(refused));
  stage_.command("strap", "refuse none");
  fault("and accepts it again", drop, patience);

  fault(
      "strap freezes during discovery",
      [&] {
        // Deletes the cache, so that everything must be discovered again.
        stage_.run("guest daemon stop TERM; rm -rf /var/lib/bluetooth/*");
        stage_.command("strap", "freeze-at discovery");
        stage_.run("guest daemon start");
      },
      90s);
}

void SessionChecks::oddSizes(const std::vector<std::size_t>& sizes) {
  Row row{.what = "values of"};
  drain();
  const std::size_t before = probe_->received(Stream::ecg);
  for (const std::size_t size : sizes) {
    stage_.command("strap", "raw ecg " + std::string(2 * size, '1'));
    row.what += ' ' + std::to_string(size);
  }
  row.what += " bytes";
  row.passed =
      stage_.until(10s, [&] { return probe_->received(Stream::ecg) == before + sizes.size(); });
  row.tally = tallyOfLinks();
  row.passed = row.passed && row.tally->inOrder();
  report_.add(std::move(row));
}

void SessionChecks::bluezStrapLosses(int count) {
  Row row{.what = std::to_string(count) + " x link ended by the strap", .passed = true};
  const std::size_t disconnectionsBefore = probe_->disconnections();
  for (int i = 0; i < count; ++i) {
    const std::size_t before = disconnectionsBefore + static_cast<std::size_t>(i);
    stage_.run("kill -USR1 $(cat /run/bluez-strap.pid)");
    const bool once = stage_.until(longPatience, [&] { return probe_->disconnections() > before; });
    row.passed = recover(longPatience, row) && once && row.passed;
  }
  row.tally = tallyOfLinks();
  row.passed = row.passed && row.tally->inOrder() && probe_->unmatched() == 0 &&
               probe_->disconnections() == disconnectionsBefore + static_cast<std::size_t>(count);
  report_.add(std::move(row));
}

void SessionChecks::sharedRestarts() {
  fault(
      "bluetoothd of both ends restarted (TERM)",
      [this] { stage_.run("guest daemon stop TERM; guest daemon start"); }, longPatience);
  // The controller keeps advertising: the session may connect before the strap has registered its
  // services with the new bluetoothd.
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
  // While the strap is absent, so that the adapter is free to connect to others.
  stage_.command("strap", "advertise off");
  stage_.command("strap", "disconnect 13");
  stage_.pass(8s);
  stage_.command("strap", "advertise on");
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
  // Includes this program's record of the current link.
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
