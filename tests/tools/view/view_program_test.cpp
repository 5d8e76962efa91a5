// SPDX-License-Identifier: MIT
// `zephly view` as a process: options, output, exit codes, signals, the browser.

#include <tests/support/process.h>
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

Arguments view(Arguments more) {
  more.insert(more.begin(), {"view", "--simulated"});
  return more;
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// A socket that is closed on destruction.
class Socket {
 public:
  Socket() : descriptor_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() { ::close(descriptor_); }

  // Binds a free port and returns its number.
  std::uint16_t listen() {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(descriptor_, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(::listen(descriptor_, 1), 0);
    EXPECT_EQ(::getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    return ntohs(address.sin_port);
  }

  // The complete response to these bytes until the connection is closed.
  std::string ask(std::uint16_t port, const std::string& bytes) {
    const sockaddr_in address = loopback(port);
    if (::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      return "no connection";
    }
    EXPECT_EQ(::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
    std::string answer;
    std::array<char, 4096> part{};
    for (ssize_t count = 0; (count = ::recv(descriptor_, part.data(), part.size(), 0)) > 0;) {
      answer.append(part.data(), static_cast<std::size_t>(count));
    }
    return answer;
  }

 private:
  int descriptor_;
};

// The port in the first line, which the program has written.
std::uint16_t portOf(const Process& process) {
  const std::string& line = process.outputSoFar();
  const std::size_t colon = line.find(':', line.find("//"));
  return static_cast<std::uint16_t>(std::stoul(line.substr(colon + 1)));
}

std::string get(std::uint16_t port, const std::string& path) {
  return Socket().ask(port, "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                                "\r\nConnection: close\r\n\r\n");
}

struct BadOption {
  std::string name;
  Arguments arguments;
  std::string expected;
};

void PrintTo(const BadOption& option, std::ostream* stream) { *stream << option.name; }

class ViewProgramBadOptionsTest : public testing::TestWithParam<BadOption> {};

TEST_P(ViewProgramBadOptionsTest, AreOneLineAndExitCode2) {
  const Finished run = runProgram(GetParam().arguments);
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr(GetParam().expected)));
  EXPECT_THAT(run.errors, StartsWith("zephly view: "));
}

Arguments brief(Arguments more) {
  more.insert(more.begin(), {"--duration", "1", "--exit-at-end"});
  return view(std::move(more));
}

INSTANTIATE_TEST_SUITE_P(
    View, ViewProgramBadOptionsTest,
    testing::Values(
        BadOption{"PortTooLarge", brief({"--port", "65536"}), "a number from 0 to 65535"},
        BadOption{"PortNegative", brief({"--port=-1"}), "a number from 0 to 65535"},
        BadOption{"PortNoNumber", brief({"--port", "http"}), "a number from 0 to 65535"},
        BadOption{"PortWithMore", brief({"--port", "80x"}), "got \"80x\""},
        BadOption{"PortEmpty", brief({"--port", ""}), "a number from 0 to 65535"},
        BadOption{"PortTwice", brief({"--port", "1", "--port", "2"}),
                  "--port: expected exactly one"},
        BadOption{"ListenToAName", brief({"--listen", "example.org"}), "got \"example.org\""},
        BadOption{"ListenToHalfAnAddress", brief({"--listen", "192.168.1"}), "an address like"},
        BadOption{"ListenWithPort", brief({"--listen", "127.0.0.1:80"}), "an address like"},
        BadOption{"ListenToNothing", brief({"--listen", ""}), "an address like"},
        BadOption{"OpenWithValue", brief({"--open=yes"}), "--open: expected no value"},
        BadOption{"SpeedZero", brief({"--speed", "0"}), "--speed"},
        BadOption{"Unknown", brief({"--nonsense"}), "--nonsense"}),
    [](const auto& instance) { return instance.param.name; });

TEST(ViewProgramTest, HelpListsEveryOption) {
  const Finished run = runProgram({"view", "--help"});
  EXPECT_EQ(run.exitCode, 0);
  for (const char* option : {"--simulated", "--speed", "--port", "--listen", "--open",
                             "--exit-at-end", "8765", "Examples:", "Exit code"}) {
    EXPECT_THAT(run.output, HasSubstr(option));
  }
}

TEST(ViewProgramTest, APortInUseIsOneLineAndExitCode1) {
  Socket other;
  const std::string port = std::to_string(other.listen());
  const Finished run = runProgram(brief({"--port", port}));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_THAT(run.errorLines(), ElementsAre("zephly view: port " + port +
                                            " of 127.0.0.1 is in use; choose another one with "
                                            "--port N, or any free one with --port 0"));
}

TEST(ViewProgramTest, AForeignAddressIsOneLineAndExitCode1) {
  // Reserved for documentation: no machine has it.
  const Finished run = runProgram(brief({"--listen", "192.0.2.1", "--port", "0"}));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.output, IsEmpty());
  EXPECT_THAT(run.errorLines(), ElementsAre("zephly view: this machine has no address 192.0.2.1"));
}

TEST(ViewProgramTest, PrintsTheAddressAndServesThePageUntilASignal) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Process process(view({"--port", "0"}));
    ASSERT_TRUE(process.readUntil("/\n"));
    EXPECT_THAT(process.outputSoFar(), MatchesRegex("Live page: http://127.0.0.1:[0-9]+/\n"));
    const std::uint16_t port = portOf(process);
    EXPECT_THAT(get(port, "/"), AllOf(StartsWith("HTTP/1.1 200 "), EndsWith("Test page</title>")));
    process.sendSignal(signal);
    const Finished run = process.finish();
    EXPECT_EQ(run.exitCode, 0) << run.errors;
    EXPECT_THAT(run.errors, IsEmpty());
  }
}

TEST(ViewProgramTest, ServesThePageAfterTheSession) {
  Process process(view({"--port", "0", "--duration", "2", "--speed", "1000"}));
  ASSERT_TRUE(process.readUntil("The session has ended. The page stays open until Ctrl-C.\n"));
  EXPECT_THAT(get(portOf(process), "/"), StartsWith("HTTP/1.1 200 "));
  process.sendSignal(SIGINT);
  const Finished run = process.finish();
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.errors, IsEmpty());
}

TEST(ViewProgramTest, EndsWithTheSessionOnRequest) {
  const Finished run =
      runProgram(view({"--port", "0", "--duration", "2", "--speed", "1000", "--exit-at-end"}));
  EXPECT_EQ(run.exitCode, 0) << run.errors;
  EXPECT_THAT(run.outputLines(), ElementsAre(StartsWith("Live page: ")));
}

TEST(ViewProgramTest, RequiresATokenBeyondLoopback) {
  Process process(view({"--port", "0", "--listen", "127.0.0.1"}));
  ASSERT_TRUE(process.readUntil("\n"));
  EXPECT_THAT(process.outputSoFar(),
              MatchesRegex("Live page: http://127.0.0.1:[0-9]+/\\?token=[0-9a-f]{32}\n"));
  const std::uint16_t port = portOf(process);
  EXPECT_THAT(get(port, "/"), StartsWith("HTTP/1.1 403 "));
  const std::string& line = process.outputSoFar();
  const std::string target = line.substr(line.find("/?"), line.find('\n') - line.find("/?"));
  EXPECT_THAT(get(port, target), AllOf(StartsWith("HTTP/1.1 303 "), HasSubstr("Set-Cookie: ")));
}

TEST(ViewProgramTest, AMissingRecordingIsOneLineAndExitCode1) {
  const Finished run =
      runProgram(brief({"--port", "0", "--recording", "/nonexistent.csv", "--rate", "100"}));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.errorLines(), ElementsAre(HasSubstr("/nonexistent.csv")));
}

TEST(ViewProgramTest, ContinuesWhenItsReaderCloses) {
  Process process(view({"--port", "0", "--speed", "100"}));
  ASSERT_TRUE(process.readUntil("/\n"));
  const std::uint16_t port = portOf(process);
  process.closeOutput();
  EXPECT_THAT(get(port, "/"), StartsWith("HTTP/1.1 200 "));
  process.sendSignal(SIGTERM);
  EXPECT_EQ(process.finish().exitCode, 0);
}

// A folder with an xdg-open controlled by the test.
class ViewProgramOpenTest : public testing::Test {
 public:
  ~ViewProgramOpenTest() override { std::filesystem::remove_all(folder_); }

 protected:
  ViewProgramOpenTest()
      : folder_(std::filesystem::path(testing::TempDir()) /
                ("view-open-" + std::to_string(::getpid()))) {
    std::filesystem::create_directories(folder_);
  }

  void provide(const std::string& script) const {
    const std::filesystem::path file = folder_ / "xdg-open";
    std::ofstream(file) << "#!/bin/sh\n" << script << '\n';
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
  }
  std::filesystem::path asked() const { return folder_ / "asked"; }
  // PATH contains only the test's folder.
  Arguments path() const { return {"PATH=" + folder_.string()}; }

 private:
  std::filesystem::path folder_;
};

TEST_F(ViewProgramOpenTest, OpensTheAddressInTheBrowser) {
  provide("echo \"$1\" >" + asked().string() + ".new; /bin/mv " + asked().string() + ".new " +
          asked().string() + "; exit 3");
  Process process(view({"--port", "0", "--open"}), Process::Output::pipe, path());
  // The failure is reported, so that the test can wait for it.
  ASSERT_TRUE(process.readUntil("xdg-open found no browser: open the page yourself.\n"));
  std::string address;
  std::getline(std::ifstream(asked()) >> std::ws, address);
  EXPECT_EQ("Live page: " + address, linesOf(process.outputSoFar()).front());
}

TEST_F(ViewProgramOpenTest, ReportsAMissingXdgOpen) {
  Process process(view({"--port", "0", "--open"}), Process::Output::pipe, path());
  ASSERT_TRUE(process.readUntil(
      "There is no xdg-open on this machine: open the page in a browser yourself.\n"));
  EXPECT_THAT(get(portOf(process), "/"), StartsWith("HTTP/1.1 200 "));
}

TEST_F(ViewProgramOpenTest, ARunningBrowserDoesNotHoldThePort) {
  // It keeps running, and shows that it does.
  provide("/bin/echo $$ >" + asked().string() + ".new; /bin/mv " + asked().string() + ".new " +
          asked().string() + "; exec /bin/sleep 60");
  std::uint16_t port = 0;
  {
    Process process(view({"--port", "0", "--open", "--speed", "1000"}), Process::Output::pipe,
                    path());
    ASSERT_TRUE(process.readUntil("/\n"));
    port = portOf(process);
    while (!std::filesystem::exists(asked()))
      ASSERT_THAT(get(port, "/"), StartsWith("HTTP/1.1 200 "));
    process.sendSignal(SIGTERM);
    EXPECT_EQ(process.finish().exitCode, 0);
  }
  EXPECT_EQ(get(port, "/"), "no connection");
  pid_t browser = 0;
  std::ifstream(asked()) >> browser;
  ASSERT_GT(browser, 1);
  EXPECT_EQ(::kill(browser, SIGKILL), 0);
}

}  // namespace
