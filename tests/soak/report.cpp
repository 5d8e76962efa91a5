// SPDX-License-Identifier: MIT
#include <tests/soak/report.h>

#include <zephly/protocol/streams.h>

#include <cmath>
#include <string>

namespace soak {

namespace {

// 1234567 as 1,234,567.
std::string grouped(std::uint64_t number) {
  std::string digits = std::to_string(number);
  for (auto place = static_cast<std::ptrdiff_t>(digits.size()) - 3; place > 0; place -= 3) {
    digits.insert(static_cast<std::size_t>(place), ",");
  }
  return digits;
}

std::string rounded(double number) {
  return grouped(static_cast<std::uint64_t>(std::llround(number)));
}

void accountRow(std::ostream& output, const std::string& what, const Account& account) {
  output << "| " << what << " | " << grouped(account.sent) << " | " << grouped(account.received)
         << " | " << grouped(account.withoutDelegate) << " |\n";
}

void stateRow(std::ostream& output, const std::string& what, std::size_t ProcessState::*field,
              const Outcome& outcome, const std::string& tolerance) {
  output << "| " << what << " | " << grouped(outcome.start.*field) << " | "
         << grouped(outcome.warm.*field) << " | " << grouped(outcome.end.*field) << " | "
         << tolerance << " |\n";
}

std::string eitherWay(std::size_t tolerance, const char* since) {
  return "±" + grouped(tolerance) + " from " + since;
}

}  // namespace

void writeReport(std::ostream& output, const Options& options, const Outcome& outcome) {
  output << "| | |\n|---|---|\n"
         << "| strap time | " << rounded(outcome.strapSeconds) << " s, seed " << options.seed
         << " |\n"
         << "| duration | " << rounded(outcome.wallSeconds) << " s, "
         << rounded(outcome.strapSeconds / outcome.wallSeconds) << " times real time |\n"
         << "| verdict | " << (outcome.wrong.empty() ? "as it must be" : "WRONG") << " |\n\n";

  output << "| | sent | received | without a delegate |\n|---|--:|--:|--:|\n";
  for (const Zephly::Stream stream : Zephly::allStreams) {
    accountRow(output, std::string(streamInfo(stream).name) + ", values",
               outcome.streams.at(static_cast<std::size_t>(stream)));
  }
  accountRow(output, "repetitions in them", outcome.repetitions);
  accountRow(output, "changes of contact in them", outcome.leadoffChanges);
  accountRow(output, "lost links", outcome.linkLosses);
  accountRow(output, "connections",
             {outcome.connections, outcome.connectsReported,
              outcome.connections - outcome.connectsReported});

  output << "\n| | |\n|---|--:|\n"
         << "| frames sent to the session | " << grouped(outcome.framesSent) << " |\n"
         << "| frames lost without a link | " << grouped(outcome.framesUnsubscribed) << " |\n"
         << "| electrodes off, planned | " << options.electrodeLosses << " |\n"
         << "| contact lost, as the session found | " << grouped(outcome.contactsLost) << " |\n"
         << "| beats while link and contact held | " << grouped(outcome.beats.sent) << " |\n"
         << "| reported of these | " << grouped(outcome.beats.received) << " |\n"
         << "| breaths reported | " << grouped(outcome.breaths) << " |\n"
         << "| delegates of the session | " << grouped(outcome.delegates) << " |\n"
         << "| receivers of repetitions | " << grouped(outcome.trainers) << " |\n\n";

  output << "| | at the start | warmed up | at the end | may be |\n|---|--:|--:|--:|---|\n";
  stateRow(output, "live blocks of operator new", &ProcessState::liveBlocks, outcome,
           eitherWay(Tolerance::blocks, "warmed up"));
  stateRow(output, "heap in use, bytes", &ProcessState::heapBytes, outcome,
           eitherWay(Tolerance::heapBytes, "warmed up"));
  stateRow(output, "resident, bytes", &ProcessState::residentBytes, outcome,
           eitherWay(Tolerance::residentBytes, "warmed up"));
  stateRow(output, "open files", &ProcessState::descriptors, outcome, "no more than at the start");
  stateRow(output, "threads", &ProcessState::threads, outcome, "no more than at the start");
}

}  // namespace soak
