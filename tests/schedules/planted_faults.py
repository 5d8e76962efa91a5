#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Plants faults in the hosts and the tools, one at a time, and counts how many schedules it takes to
notice each. A fault that is never noticed, or whose place no longer exists, makes the exit code 1.

Works on a copy of the last commit, which it builds once (about 3 minutes) and then for each fault
(some seconds). Prints a table in Markdown.
"""

import argparse
import pathlib
import re
import subprocess
import sys

# What goes wrong, file, text, replacement.
FAULTS = [
    ("a subscription is not requested again after a busy reply", "hosts/bluez/link.cpp",
     "attemptsLeft > 1 && characteristic->subscribed()", "attemptsLeft > 9"),
    ("the scan is not restarted after the adapter was off", "hosts/bluez/radio.cpp",
     "if (state != poweredOn || adapter != adapter_) scan_.lost();", ""),
    ("a failed attempt is not repeated", "hosts/bluez/peripheral.cpp",
     "  retry_.later([this] { proceed(); });\n", ""),
    ("the request is forgotten when the radio changes", "hosts/bluez/peripheral.cpp",
     "  } else {\n    proceed();\n  }\n}\n\nvoid Peripheral::deviceChanged",
     "  }\n}\n\nvoid Peripheral::deviceChanged"),
    ("the end of a link is reported twice", "hosts/bluez/peripheral.cpp",
     "    delegate->centralManagerDidDisconnectPeripheral(central, self, hosts::Error::of(reason));\n",
     "    delegate->centralManagerDidDisconnectPeripheral(central, self, hosts::Error::of(reason));\n"
     "    delegate->centralManagerDidDisconnectPeripheral(central, self, hosts::Error::of(reason));\n"),
    ("the end of a link is not reported when bluetoothd dies", "hosts/bluez/peripheral.cpp",
     "  if (link_ && !radio_->isOurs(link_->path())) {\n    endLink(radio_->lossReason());\n  } else {\n"
     "    proceed();\n  }\n}\n\nvoid Peripheral::deviceChanged",
     "  if (!link_) proceed();\n}\n\nvoid Peripheral::deviceChanged"),
    ("a stale reply counts for a new attempt", "hosts/bluez/peripheral.cpp",
     "if (self && self->attempt_ == attempt) self->attemptAnswered", "if (self) self->attemptAnswered"),
    ("the request outlives the link that it led to", "hosts/bluez/peripheral.cpp",
     "  abandonAttempt();\n  requested_ = false;\n  settled_ = false;\n  stalledAttempts_ = 0;\n",
     "  abandonAttempt();\n  settled_ = false;\n  stalledAttempts_ = 0;\n"),
    ("a stale list of objects is believed", "hosts/bluez/daemon.cpp",
     "         if (owner != owner_) return;\n         const auto changes", "         const auto changes"),
    ("signals of the previous bluetoothd are believed", "hosts/bluez/daemon.cpp",
     "if (signal.sender != owner_ || !ready()) return;", "if (!ready()) return;"),
    ("the bus is not opened again", "hosts/bluez/daemon.cpp",
     "  bus_.reset();\n  retry_.later([this] { openBus(); });", "  bus_.reset();"),
    ("a refused bus is not tried again", "hosts/bluez/daemon.cpp",
     "  if (error != nullptr) {\n    retry_.later([this] { openBus(); });", "  if (error != nullptr) {"),
    ("the objects are not listed again after a failure", "hosts/bluez/daemon.cpp",
     "         retry_.later([this] { load(); });\n", ""),
    ("the owner is not asked for again", "hosts/bluez/daemon.cpp",
     "if (bus_ && owner_.empty()) askForOwner();", ""),
    ("values of a characteristic arrive twice", "hosts/bluez/link.cpp",
     "    delegate->peripheralDidUpdateValueForCharacteristic(peripheral, characteristic, nullptr);\n",
     "    delegate->peripheralDidUpdateValueForCharacteristic(peripheral, characteristic, nullptr);\n"
     "    if (value.front() == 7)\n"
     "      delegate->peripheralDidUpdateValueForCharacteristic(peripheral, characteristic, nullptr);\n"),
    ("what a descriptor still holds is lost with the link", "hosts/bluez/peripheral.cpp",
     "  link->drain();\n", ""),
    ("the services of a new link are not waited for", "hosts/bluez/peripheral.cpp",
     "if (isTrue(\"ServicesResolved\")) link_->servicesResolved();", ""),
    ("a connection that another program made is not used", "hosts/bluez/radio.cpp",
     "if (!gone && connected != nullptr && *connected)", "if (gone && connected != nullptr && *connected)"),
    ("an interrupted write ends the recording", "capture/writer.cpp",
     "  if (errorNumber == EINTR) return true;\n", ""),
    ("a short write is taken for a whole one", "capture/writer.cpp",
     "    written += static_cast<std::size_t>(count);", "    written = bytes.size();"),
    ("SIGTERM is noticed late", "tools/watch/session_runner.cpp",
     "[this] { handler_.onEndSignal(); })),",
     "[this] { static main_queue::Timer late = queue_.after(std::chrono::seconds(5),\n"
     "      [this] { handler_.onEndSignal(); }); })),"),
    ("every 500th event is dropped", "tools/watch/receiver.cpp",
     "  listener_(Event{now, std::forward<What>(what)});",
     "  static int count = 0;\n  if (++count % 500 != 0) listener_(Event{now, std::forward<What>(what)});"),
    ("an event is lost when there is no memory for it", "tools/watch/receiver.cpp",
     "  listener_(Event{now, std::forward<What>(what)});",
     "  try { listener_(Event{now, std::forward<What>(what)}); } catch (const std::bad_alloc&) {}"),
    ("samples that a viewer loses are not counted", "tools/view/viewer_queue.cpp",
     "  unreportedSamples_[static_cast<std::size_t>(oldest.trace)] += oldest.samples;\n", ""),
    ("the queue of a viewer is not limited", "tools/view/viewer_queue.cpp",
     "  limitBytes();\n}", "}"),
    ("the messages of a viewer change their order", "tools/view/viewer_queue.cpp",
     "messages->front().place < first->front().place", "messages->front().place > first->front().place"),
    ("a new viewer receives the latest samples twice", "tools/view/sample_track.h",
     "return messages(begin_, taken_);", "return messages(begin_, end_);"),
    ("the end waits for a viewer that does not read", "tools/view/view_command.cpp",
     "constexpr std::chrono::seconds farewell{2};", "constexpr std::chrono::seconds farewell{20};"),
    ("what waits for viewers is dropped at the end", "tools/view/viewer.cpp",
     "  ending_ = true;\n", "  ending_ = true;\n  return drop();\n"),
    ("a message of a viewer is passed over", "tools/view/viewer.cpp",
     "      self->refuse();\n", "      self->read();\n"),
    ("half a request holds its connection", "tools/view/connection.cpp",
     "  stream_.expires_after(limits.request);\n", ""),
]


def run(command, **options):
    return subprocess.run(command, check=False, capture_output=True, text=True, **options)


def build(tree):
    built = run(["cmake", "--build", "--preset", "normal", "--target", "zephly_schedules"], cwd=tree)
    return built.returncode == 0, built.stdout


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--seeds", type=int, default=5000, help="schedules for each fault")
    parser.add_argument("--copy", type=pathlib.Path, default=pathlib.Path("build/planted"),
                        help="where the copy of the tree is made")
    parser.add_argument("--only", action="append", help="a part of a fault's description; may be repeated")
    arguments = parser.parse_args()
    faults = [fault for fault in FAULTS if not arguments.only or any(part in fault[0] for part in arguments.only)]
    top = pathlib.Path(__file__).resolve().parents[2]
    tree = arguments.copy if arguments.copy.is_absolute() else top / arguments.copy
    if not tree.exists():
        subprocess.run(["git", "clone", "-q", str(top), str(tree)], check=True)
    subprocess.run(["git", "-C", str(tree), "checkout", "-q", "--", "."], check=True)
    subprocess.run(["git", "-C", str(tree), "pull", "-q", "--ff-only"], check=True)
    subprocess.run(["cmake", "--preset", "normal", "-DZEPHLY_BUILD_PAGE=OFF"], cwd=tree, check=True, stdout=subprocess.DEVNULL)
    built, output = build(tree)
    if not built:
        sys.exit("the tree does not build:\n" + output)
    program = tree / "build/normal/tests/schedules/zephly_schedules"
    failures = 0
    print("| planted fault | schedules until it was noticed | as |\n|---|--:|---|", flush=True)
    for what, name, text, replacement in faults:
        file = tree / name
        original = file.read_text()
        if original.count(text) != 1:
            print(f"| {what} | its place in {name} does not exist | |", flush=True)
            failures += 1
            continue
        file.write_text(original.replace(text, replacement))
        built, output = build(tree)
        found = None
        if built:
            found = run([program, "--seeds", str(arguments.seeds), "--until-failure"])
        file.write_text(original)
        match = re.search(r"seed (\d+): (.*)", found.stdout) if found else None
        if match is None:
            failures += 1
        result = "does not build" if not built else "not noticed" if match is None else match.group(1)
        print(f"| {what} | {result} | {match.group(2)[:80] if match else ''} |", flush=True)
    sys.exit(1 if failures else 0)


main()
