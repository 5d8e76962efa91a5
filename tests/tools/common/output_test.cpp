// SPDX-License-Identifier: MIT
#include <tools/common/output.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <string>

namespace Zephly::tools {
namespace {

class Pipe {
 public:
  Pipe() { EXPECT_EQ(::pipe(ends_.data()), 0); }
  ~Pipe() {
    closeReader();
    ::close(ends_[1]);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int writer() const { return ends_[1]; }
  void closeReader() {
    if (ends_[0] >= 0) ::close(ends_[0]);
    ends_[0] = -1;
  }
  // The available text, up to a limit.
  std::string read() const {
    std::string text(1 << 20, '\0');
    const ssize_t count = ::read(ends_[0], text.data(), text.size());
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
  }

 private:
  std::array<int, 2> ends_{-1, -1};
};

TEST(OutputTest, BuffersTextUntilItIsFlushed) {
  const Pipe pipe;
  Output output(pipe.writer());
  output.write("one ");
  output.write("two");
  EXPECT_EQ(output.pending(), 7U);
  EXPECT_TRUE(output.flush());
  EXPECT_EQ(pipe.read(), "one two");
  EXPECT_EQ(output.pending(), 0U);
}

TEST(OutputTest, FlushesAFullBuffer) {
  const Pipe pipe;
  Output output(pipe.writer());
  output.write(std::string(Output::bufferSize, 'x'));
  EXPECT_EQ(output.pending(), 0U);
  EXPECT_EQ(pipe.read().size(), Output::bufferSize);
}

// Lines "0\n", "1\n" and so on, of 100 bytes.
std::string numbered(int number) {
  std::string line = std::to_string(number);
  line.resize(99, ' ');
  return line + "\n";
}

TEST(OutputTest, DropsWholeLinesWhenTheQueueIsFullAndTakesThemAgainWhenHalfOfItIsFree) {
  const Pipe pipe;
  Output output(pipe.writer(), 100'000);
  int count = 0;
  while (!output.isFull()) output.write(numbered(count++));
  EXPECT_GT(output.pending(), 90'000U);
  EXPECT_EQ(output.droppedLines(), 0U);
  output.write(numbered(count));
  output.write(numbered(count));
  EXPECT_EQ(output.droppedLines(), 2U);
  EXPECT_EQ(output.failure(), "2 lines were lost because the reader is too slow");

  std::string received = pipe.read();
  EXPECT_FALSE(output.isFull());
  output.write("after the gap\n");
  while (output.pending() > 0) {
    output.flush();
    received += pipe.read();
  }
  std::string expected;
  for (int i = 0; i < count; ++i) expected += numbered(i);
  EXPECT_EQ(received, expected + "after the gap\n");
  EXPECT_EQ(output.droppedLines(), 2U);
}

TEST(OutputTest, GivesUpAtTheEndWithWholeLinesAndCountsTheRest) {
  const Pipe pipe;
  Output output(pipe.writer());
  constexpr int count = 2'000;
  for (int i = 0; i < count; ++i) output.write(numbered(i));
  EXPECT_FALSE(output.finish(std::chrono::milliseconds(1)));
  EXPECT_EQ(output.pending(), 0U);
  const std::string received = pipe.read();
  EXPECT_EQ(received.size() % 100, 0U);
  EXPECT_EQ(received.back(), '\n');
  EXPECT_EQ(output.droppedLines(), count - received.size() / 100);
}

TEST(OutputTest, TakesTheLastTextEvenIfTheQueueIsFull) {
  const Pipe pipe;
  Output output(pipe.writer(), 1'000);
  while (!output.isFull()) output.write(numbered(0));
  const std::size_t before = output.pending();
  output.writeLast("summary\n");
  EXPECT_EQ(output.pending(), before + 8);
}

TEST(OutputTest, MeasuresHowLongTheReaderTakesNothing) {
  const Pipe pipe;
  Output output(pipe.writer());
  EXPECT_EQ(output.stalledFor().count(), 0);
  output.write(std::string(300'000, 'x'));
  output.flush(std::chrono::milliseconds(20));
  EXPECT_GE(output.stalledFor(), std::chrono::milliseconds(20));
}

TEST(OutputTest, DoesNotBlockOnAStalledReaderAndLosesNothing) {
  const Pipe pipe;
  Output output(pipe.writer());
  const std::string text(300'000, 'x');
  output.write(text);
  EXPECT_FALSE(output.flush());
  EXPECT_GT(output.pending(), 0U);
  EXPECT_EQ(output.state(), Output::State::open);
  std::size_t received = 0;
  while (output.pending() > 0) {
    received += pipe.read().size();
    output.flush();
  }
  received += pipe.read().size();
  EXPECT_EQ(received, text.size());
}

TEST(OutputTest, IsClosedWhenTheReaderCloses) {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  Pipe pipe;
  Output output(pipe.writer());
  pipe.closeReader();
  output.write("lost");
  output.flush();
  EXPECT_EQ(output.state(), Output::State::closed);
  output.write("dropped");
  EXPECT_EQ(output.pending(), 0U);
  EXPECT_TRUE(output.finish(std::chrono::milliseconds(1)));
}

TEST(OutputTest, ReportsADescriptorThatIsClosed) {
  const int unwritable = ::open("/dev/null", O_RDONLY);
  ASSERT_GE(unwritable, 0);
  Output output(unwritable);
  output.write("text");
  output.flush();
  ::close(unwritable);
  EXPECT_EQ(output.failure(), "it is closed");
}

TEST(OutputTest, ReportsTheReasonOfAFailure) {
  const int full = ::open("/dev/full", O_WRONLY);
  ASSERT_GE(full, 0);
  Output output(full);
  output.write("text");
  output.flush();
  ::close(full);
  EXPECT_EQ(output.state(), Output::State::failed);
  EXPECT_EQ(output.error(), "No space left on device");
}

}  // namespace
}  // namespace Zephly::tools
