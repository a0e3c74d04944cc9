#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "host/entry/errors.h"
#include "kcdata/stackshot.h"
#include "tests/unit/fake_machine.h"
#include "tests/unit/kcdata_bytes.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using kcdata_test::Bytes;
using kcdata_test::opened;
using sampled::outputOf;
using sampled::Variable;

class SnapshotMachine : public fake_machine::FakeMachine {
 public:
  std::vector<uint8_t> snapshot;
  std::vector<pid_t> asked;
  uint64_t flagsAsked = 0;

  host::Errno stackshot(pid_t pid, uint64_t flags, std::vector<uint8_t> &out) override {
    asked.push_back(pid);
    flagsAsked = flags;
    return give("stackshot", out, snapshot);
  }
};

class Stackshot : public fake_machine::MachineTest<SnapshotMachine> {
 protected:
  Stackshot() {
    answer(opened()
               .begin(2307)
               .begin(2308)
               .item(2313, Bytes().text("main").upTo(16))
               .end()
               .end()
               .endOfData());
  }

  void answer(const Bytes &bytes) {
    machine.snapshot.assign(bytes.data(), bytes.data() + bytes.size());
  }

  // What is written to standard output; the rest goes to errors.
  std::string taken(int32_t pid, uint32_t flags, uint32_t threadsOnly) {
    testing::internal::CaptureStderr();
    std::string text = outputOf([&] { EXPECT_EQ(stackshot_wrapper(pid, flags, threadsOnly), 0); });
    errors = testing::internal::GetCapturedStderr();
    return text;
  }

  std::string errors;
  Variable debug{"ZDEBUG", nullptr};
};

TEST_F(Stackshot, AsksForTheProcess) {
  taken(40, 1, 1);
  EXPECT_EQ(machine.asked, std::vector<pid_t>{40});
  EXPECT_EQ(machine.flagsAsked, 0x09092006u);
}

TEST_F(Stackshot, PassesOnHowToPrint) {
  EXPECT_EQ(taken(40, 1, 1), "\t  Thread container\n\t\tName:  \tmain\n");
  EXPECT_EQ(taken(40, 0, 1), "\tCONTAINER_BEGIN  Thread container\n\t\t_THREAD_NAME \tmain\n");
  EXPECT_EQ(taken(40, 0, 0),
            "CONTAINER_BEGIN  Task container\n\tCONTAINER_BEGIN  Thread container\n"
            "\t\t_THREAD_NAME \tmain\n\tCONTAINER_END  \nCONTAINER_END  \n");
  EXPECT_EQ(errors, "");
}

// Each capture has a configuration of its own, so that the next one finds none in its way.
TEST_F(Stackshot, CanBeTakenAgain) {
  const std::string first = taken(40, 1, 1);
  answer(opened().begin(2308).item(2313, Bytes().text("other").upTo(16)).end());
  EXPECT_NE(taken(40, 1, 1), first);
  machine.refusal = darwin::DARWIN_EBUSY;
  EXPECT_EQ(taken(40, 1, 1), "RC: 16\n");
  machine.refusal = host::kAnswered;
  EXPECT_EQ(taken(41, 1, 1), "  Thread container\n\tName:  \tother\n");
  EXPECT_EQ(machine.asked, (std::vector<pid_t>{40, 40, 40, 41}));
}

TEST_F(Stackshot, SaysWhyItFailed) {
  const struct {
    int result;
    const char *message;
  } rows[] = {
      {1, "sswc: Operation not permitted\n"},
      {22, "sswc: Invalid argument\n"},
      {16, "sswc: BUSY\n"},
      {45, "sswc: NOTSUPP\n"},
      {60, "sswc: ETIMEDOUT\n"},
      {12, "sswc: NOMEM\n"},
  };
  for (const auto &row : rows) {
    machine.refusal = row.result;
    EXPECT_EQ(taken(40, 1, 1), "RC: " + std::to_string(row.result) + "\n");
    EXPECT_EQ(errors, row.message);
  }
}

TEST_F(Stackshot, SaysOnlyTheNumberOfOtherFailures) {
  for (const int result : {2, 3, 4, 14, 17, 28, 35, 78, 1000}) {
    machine.refusal = result;
    EXPECT_EQ(taken(40, 1, 1), "RC: " + std::to_string(result) + "\n");
    EXPECT_EQ(errors, "") << result;
  }
}

TEST_F(Stackshot, NamesTheErrorOfANegativeResult) {
  machine.refusal = -1;
  host::setErrno(darwin::DARWIN_EIO);
  EXPECT_EQ(taken(40, 1, 1), "RC: -1\n");
  EXPECT_TRUE(errors.starts_with("sswc: ")) << errors;
  EXPECT_TRUE(errors.ends_with("\n")) << errors;
}

TEST_F(Stackshot, IsForRootOnly) {
  machine.privileged = false;
  EXPECT_EQ(taken(40, 1, 1), "RC: 1\n");
  EXPECT_EQ(errors, "sswc: Operation not permitted\n");
  EXPECT_TRUE(machine.asked.empty());
}

TEST_F(Stackshot, OfNothingFails) {
  answer({});
  EXPECT_EQ(taken(40, 1, 1), "RC: 4\n");
  EXPECT_EQ(errors, "");
}

TEST_F(Stackshot, OfAnotherFormatPrintsNothing) {
  answer(Bytes().text("no chunks at all"));
  EXPECT_EQ(taken(40, 1, 0), "");
  EXPECT_EQ(errors, "");
}

TEST_F(Stackshot, DebuggingDumpsTheBytes) {
  answer(Bytes().item(0x59A25807).item(54));
  setenv("ZDEBUG", "1", 1);
  EXPECT_EQ(taken(40, 0, 0), "PID  NOT YET!\n");
  EXPECT_EQ(errors,
            "0x0000: 0x07 0x58 0xA2 0x59 0x00 0x00 0x00 0x00 \t.X.Y....\n"
            "0x   8: 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 \t........\n"
            "0x  10: 0x36 0x00 0x00 0x00 0x00 0x00 0x00 0x00 \t6.......\n"
            "0x  18: 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 \n");
}

// What the system call takes on kernels with 32-bit flags.
struct RawConfiguration {
  int32_t pid;
  uint32_t flags;
  uint64_t deltaTimestamp;
  uint64_t buffer;
  uint32_t size;
  void **outBuffer;
  uint32_t *outSize;
};
static_assert(sizeof(RawConfiguration) == 48);

TEST_F(Stackshot, SystemCallMapsIt) {
  void *buffer = nullptr;
  uint32_t size = 0;
  RawConfiguration config = {40, 0x10002, 0, 0, 0, &buffer, &size};
  ASSERT_EQ(stack_snapshot_with_config(1, &config, sizeof config), 0);
  EXPECT_EQ(machine.asked, std::vector<pid_t>{40});
  EXPECT_EQ(machine.flagsAsked, 0x10002u);
  ASSERT_EQ(size, machine.snapshot.size());
  EXPECT_EQ(memcmp(buffer, machine.snapshot.data(), size), 0);
  EXPECT_EQ(munmap(buffer, size), 0);
}

TEST_F(Stackshot, SystemCallIsParticularAboutItsArguments) {
  void *buffer = nullptr;
  uint32_t size = 0;
  RawConfiguration config = {40, 0x10000, 0, 0, 0, &buffer, &size};
  const auto refusal = [&](int version, RawConfiguration *at, size_t bytes) {
    errno = 0;
    EXPECT_EQ(stack_snapshot_with_config(version, at, bytes), -1);
    return errno;
  };
  EXPECT_EQ(refusal(1, nullptr, sizeof config), darwin::DARWIN_EINVAL);
  EXPECT_EQ(refusal(1, &config, sizeof config - 1), darwin::DARWIN_EINVAL);
  EXPECT_EQ(refusal(1, &config, sizeof config + 16), darwin::DARWIN_EINVAL);
  EXPECT_EQ(refusal(2, &config, sizeof config), darwin::DARWIN_ENOTSUP);
  config.outSize = nullptr;
  EXPECT_EQ(refusal(1, &config, sizeof config), darwin::DARWIN_EINVAL);
  config.outSize = &size;
  config.outBuffer = nullptr;
  EXPECT_EQ(refusal(1, &config, sizeof config), darwin::DARWIN_EINVAL);
  config.outBuffer = &buffer;
  config.flags = 0;
  EXPECT_EQ(refusal(1, &config, sizeof config), darwin::DARWIN_ENOTSUP);
  config.flags = 0x10000;
  machine.refusal = darwin::DARWIN_EBUSY;
  EXPECT_EQ(refusal(1, &config, sizeof config), darwin::DARWIN_EBUSY);
  machine.privileged = false;
  EXPECT_EQ(refusal(1, &config, sizeof config), darwin::DARWIN_EPERM);
  EXPECT_EQ(buffer, nullptr);
  EXPECT_EQ(size, 0u);
}

}  // namespace
