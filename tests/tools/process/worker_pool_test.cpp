// SPDX-License-Identifier: MIT
#include <tools/process/worker_pool.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zephly::processing {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

struct Listener final : WorkerListener {
  void progress(std::size_t index, double part) override { parts[index] = part; }
  void complaint(std::size_t index, const std::string& text) override {
    complaints.emplace_back(index, text);
  }
  void ended(std::size_t index, Outcome outcome) override { outcomes[index] = outcome; }
  bool interrupted() override { return isInterrupted(); }

  std::map<std::size_t, double> parts;
  std::vector<std::pair<std::size_t, std::string>> complaints;
  std::map<std::size_t, Outcome> outcomes;
  std::function<bool()> isInterrupted = [] { return false; };
};

TEST(WorkerPoolTest, ReportsHowEachHasEnded) {
  Listener listener;
  const std::vector<Outcome> results = {Outcome::done, Outcome::wasThere, Outcome::defective,
                                        Outcome::failed};
  EXPECT_TRUE(runWorkers(
      4, 2, [&](std::size_t index, WorkerLine&) { return results.at(index); }, listener));
  EXPECT_THAT(listener.outcomes,
              ElementsAre(Pair(0U, Outcome::done), Pair(1U, Outcome::wasThere),
                          Pair(2U, Outcome::defective), Pair(3U, Outcome::failed)));
}

TEST(WorkerPoolTest, PassesOnProgressAndComplaints) {
  Listener listener;
  EXPECT_TRUE(runWorkers(
      2, 1,
      [](std::size_t index, WorkerLine& line) {
        line.progress(0.25);
        line.progress(1);
        if (index == 1) line.complain("two\nlines" + std::string(100'000, 'x'));
        return Outcome::done;
      },
      listener));
  EXPECT_THAT(listener.parts, ElementsAre(Pair(0U, 1.0), Pair(1U, 1.0)));
  EXPECT_THAT(listener.complaints, ElementsAre(Pair(1U, "two lines" + std::string(100'000, 'x'))));
}

TEST(WorkerPoolTest, AnExceptionIsThatOfOneWorker) {
  Listener listener;
  EXPECT_TRUE(runWorkers(
      3, 3,
      [](std::size_t index, WorkerLine&) {
        if (index == 0) throw std::runtime_error("broken");
        if (index == 1) throw std::bad_alloc();
        return Outcome::done;
      },
      listener));
  EXPECT_THAT(listener.complaints,
              UnorderedElementsAre(Pair(0U, "broken"), Pair(1U, "not enough memory")));
  EXPECT_THAT(listener.outcomes, ElementsAre(Pair(0U, Outcome::failed), Pair(1U, Outcome::failed),
                                             Pair(2U, Outcome::done)));
}

TEST(WorkerPoolTest, AKilledWorkerEndsNoOther) {
  Listener listener;
  EXPECT_TRUE(runWorkers(
      3, 2,
      [](std::size_t index, WorkerLine&) {
        if (index == 1) ::kill(::getpid(), SIGKILL);
        return Outcome::done;
      },
      listener));
  EXPECT_THAT(listener.complaints, ElementsAre(Pair(1U, "its process was ended: Killed")));
  EXPECT_EQ(listener.outcomes.at(1), Outcome::failed);
  EXPECT_EQ(listener.outcomes.at(2), Outcome::done);
}

TEST(WorkerPoolTest, AnInterruptionEndsAlsoWorkersThatIgnoreIt) {
  Listener listener;
  listener.isInterrupted = [&] { return listener.parts.size() == 2; };
  EXPECT_FALSE(runWorkers(
      5, 2,
      [](std::size_t, WorkerLine& line) {
        static_cast<void>(std::signal(SIGTERM, SIG_IGN));
        line.progress(1);
        for (;;) ::pause();
        return Outcome::done;
      },
      listener));
  EXPECT_THAT(listener.outcomes, IsEmpty());
}

TEST(WorkerPoolTest, AnInterruptionThatEndsTheLastWorkerIsOne) {
  Listener listener;
  listener.isInterrupted = [&] { return !listener.outcomes.empty(); };
  EXPECT_FALSE(runWorkers(
      1, 1, [](std::size_t, WorkerLine&) { return Outcome::failed; }, listener));
}

}  // namespace
}  // namespace Zephly::processing
