// The descriptors of processes of simulated devices, with what no machine of another system has:
// every kind of the kernel's, and peers.
#include <gtest/gtest.h>

#include <string>

#include "harness/run.h"
#include "harness/written_device.h"

namespace test {
namespace {

const Environment kKinds = {{"SONDEX_DEVICE", "kinds"}};

constexpr char kSockets[] =
    "fds-kinds           53 FD  4u  socket tcp4   *:22\n"
    "fds-kinds           53 FD  5u  socket tcp4   "
    "192.168.1.9:50001->       192.0.2.1:443   ESTABLISHED\n"
    "fds-kinds           53 FD  6u  socket tcp4   "
    "127.0.0.1:8080->       127.0.0.1:50200 local-peer (PID: 54) CLOSE_WAIT\n"
    "fds-kinds           53 FD  7u  socket tcp6   [::]:50002->            [::]:443   TIME_WAIT\n"
    "fds-kinds           53 FD  8u  socket udp4   *:5353\n"
    "fds-kinds           53 FD  9u  socket udp6   [::]:5353->            [::]:0    \n"
    "fds-kinds           53 FD 10u  socket UNIX *:0\n"
    "fds-kinds           53 FD 11u  socket UNIX [::]:0->            [::]:0    \n"
    "fds-kinds           53 FD 12u  socket stream 8000000000000900   (LISTENING)  "
    "\t/private/var/run/listening\n"
    "fds-kinds           53 FD 13u  socket stream "
    "4000000000000100->4000000000000200 fds-kinds (PID: 53)\n"
    "fds-kinds           53 FD 14u  socket stream "
    "4000000000000200->4000000000000100 fds-kinds (PID: 53)\n"
    "fds-kinds           53 FD 15u  socket dgram  8000000000000a00   (LISTENING)  "
    "\t/private/var/run/datagram\n"
    "fds-kinds           53 FD 16u  socket system Control: com.apple.net.utun_control \n"
    "fds-kinds           53 FD 17u  socket system Event:   APPLE:NETWORK:INET\n"
    "fds-kinds           53 FD 18u  socket system Event:   2:1:1\n"
    "fds-kinds           53 FD 19u  socket Unknown type 17\n \n"
    "fds-kinds           53 FD 20u  socket KEY \n"
    "fds-kinds           53 FD 21u  socket NDRV \n"
    "fds-kinds           53 FD 22u  socket Unknown type 40\n \n";

constexpr char kFiles[] =
    "fds-kinds           53 FD  0r  /private/var/read @0x1234     \n"
    "fds-kinds           53 FD  1w  /private/var/write @0x0        \n"
    "fds-kinds           53 FD  2u  /private/var/both @0x0        \n"
    "fds-kinds           53 FD  3   /private/var/neither @0x0        \n";

constexpr char kOthers[] =
    "fds-kinds           53 FD 23u  sem /kinds.sem\n"
    "fds-kinds           53 FD 24u  shmem kinds.shm@0x104000000\n"
    "fds-kinds           53 FD 25r  pipe \n"
    "fds-kinds           53 FD 26w  pipe \n"
    "fds-kinds           53 FD    NPOLICY (Not handled yet - rc 2)\n"
    "fds-kinds           53 FD    NPOLICY (Not handled yet - rc 0)\n"
    "Can't get info (6) - Error Bad file descriptor\n"
    "fds-kinds           53 FD    NPOLICY (Not handled yet - rc 0)\n"
    "fds-kinds           53 FD    CHANNEL upipe\t 00010203-0405-0607-0809-0A0B0C0D0E0F[2]\n"
    "fds-kinds           53 FD    CHANNEL kpipe\t F0E1D2C3-B4A5-9687-7869-5A4B3C2D1E0F[3]\n"
    "fds-kinds           53 FD    NEXUS (Not handled yet - rc 0)\n";

// The socket of the other process is found by the port.
constexpr char kPeer[] =
    "local-peer          54 FD  0u  socket tcp4   "
    "127.0.0.1:50200->       127.0.0.1:8080  fds-kinds (PID: 53) ESTABLISHED\n";

std::string outputOf(const std::vector<std::string> &arguments, const Environment &environment) {
  const Outcome outcome = runSondex(arguments, environment);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  return outcome.output;
}

TEST(Descriptors, OfEachKindHaveALine) {
  EXPECT_EQ(outputOf({"53", "fds"}, kKinds),
            std::string(kFiles) + kSockets + kOthers +
                "FLAVOR: 0\n"
                "UNknownfds-kinds           53 FD100u  /private/var/hundred @0x0        \n");
}

// What is passed over is told of all the same where its type is not known.
TEST(Descriptors, OfTheNetworkAreSockets) {
  EXPECT_EQ(outputOf({"53", "net"}, kKinds), std::string(kSockets) + "FLAVOR: 0\n");
  EXPECT_EQ(outputOf({"54", "net"}, kKinds), kPeer);
}

TEST(Descriptors, OfAllProcessesStandBelowTheirProcess) {
  const std::string fds = outputOf({"all", "fds"}, kKinds);
  EXPECT_NE(fds.find(std::string("PID: 54 (local-peer)\n") + kPeer + "PID: 53 (fds-kinds)\n" +
                     kFiles + kSockets + kOthers + "FLAVOR: 0\n"),
            std::string::npos)
      << fds;
  const std::string net = outputOf({"all", "net"}, kKinds);
  EXPECT_NE(net.find(std::string("PID: 54 (local-peer)\n") + kPeer + "PID: 53 (fds-kinds)\n" +
                     kSockets + "FLAVOR: 0\nPID: 52 (fds-200)\nPID: 51 (fds-128)\n"),
            std::string::npos)
      << net;
}

TEST(Descriptors, ThatAreRefusedAreSaidToBe) {
  const WrittenDevice device(std::string(R"(
event = [
  { do = "fail", call = "proc_pidfdinfo", form = "PROC_PIDFDSOCKETINFO", error = "EPERM" },
  { do = "fail", call = "proc_pidfdinfo", form = "PROC_PIDFDCHANNELINFO", error = "ESRCH" },
]
)") + kSteppedClock + R"(
[[process]]
pid = 7
name = "refused"
descriptors = [
  { type = "file", path = "/a", mode = ["read"] },
  { type = "tcp", local = "*:22" },
  { type = "channel", port = 5, channel-type = 1 },
  { type = "file", path = "/b", mode = ["write"] },
]
)");
  EXPECT_EQ(outputOf({"7", "fds"}, device.environment()),
            "refused              7 FD  0r  /a @0x0        \n"
            "Can't get info (3) - Error Operation not permitted\n"
            "refused              7 FD    CHANNEL upipe\t 00000000-0000-0000-0000-000000000000[0]\n"
            "refused              7 FD  3w  /b @0x0        \n");
  EXPECT_EQ(outputOf({"7", "net"}, device.environment()),
            "Can't get info (3) - Error Operation not permitted\n");
}

}  // namespace
}  // namespace test
