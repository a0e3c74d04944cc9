#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "inspect/threads.h"
#include "tests/unit/kcdata_bytes.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::outputOf;
using sampled::SampledTest;
constexpr char kHeader[] =
    "TID             USER                                                    KERNEL\n";

// Names in the compact form, and nothing outside of the thread.
constexpr char kSnapshot[] = "\t  Thread container\n\t\tName:  \tmain\n";

// Has a snapshot of one thread of any process.
class OneThreadMachine : public sampled::SampledMachine {
 public:
  std::vector<pid_t> snapshotsOf;

  host::Errno stackshot(pid_t pid, uint64_t, std::vector<uint8_t> &out) override {
    using kcdata_test::Bytes;
    snapshotsOf.push_back(pid);
    const Bytes bytes = kcdata_test::opened()
                            .begin(2307)
                            .begin(2308)
                            .item(2313, Bytes().text("main").upTo(16))
                            .end()
                            .end()
                            .endOfData();
    out.assign(bytes.data(), bytes.data() + bytes.size());
    return host::kAnswered;
  }
};

class ThreadsReport : public SampledTest {
 protected:
  ThreadsReport() {
    host::useMachine(&oneThread);
    record_.taskAllInfo.pbsd.pbi_pid = 40;
  }

  // What is written about these work queues.
  std::string queues(const darwin::proc_workqueueinfo &info) {
    record_.workqueueInfo = info;
    return outputOf([this] { result_ = dump_workqueue_information(&record_); });
  }

  OneThreadMachine oneThread;
  ProcessRecord record_ = {};
  int result_ = 0;
};

TEST_F(ThreadsReport, CountsTheThreadsOfWorkQueues) {
  const std::string line = " Workqueues:7 threads (2 running, 4 blocked) State: 3\n";
  EXPECT_EQ(queues({7, 2, 4, 3}), line);
  EXPECT_EQ(result_, static_cast<int>(line.size()));
}

TEST_F(ThreadsReport, HasNoWorkQueuesWithoutThreads) {
  const std::string line = " (Process has no workqueues)\n";
  EXPECT_EQ(queues({0, 2, 4, 3}), line);
  EXPECT_EQ(result_, static_cast<int>(line.size()));
}

TEST_F(ThreadsReport, TakesAnyCountsOfWorkQueues) {
  constexpr uint32_t kMost = std::numeric_limits<uint32_t>::max();
  EXPECT_EQ(queues({1, kMost, kMost, kMost}),
            " Workqueues:1 threads (-1 running, -1 blocked) State: -1\n");
  constexpr uint32_t kLowest = 0x80000000;
  EXPECT_EQ(queues({kLowest, kLowest, kLowest, kLowest}),
            " Workqueues:-2147483648 threads (-2147483648 running, -2147483648 blocked) "
            "State: -2147483648\n");
}

TEST_F(ThreadsReport, HasNoThreadsYet) {
  int result = 0;
  EXPECT_EQ(outputOf([&] { result = showProcThreads(&record_); }), "NO PROC THREADS YET\n");
  EXPECT_EQ(result, 20);
}

TEST_F(ThreadsReport, SnapshotIsPrintedAndAnswersAConstantText) {
  EXPECT_EQ(outputOf([] { EXPECT_STREQ(dumpStackSnapshot(40, 0), "NOT YET..\n"); }), kSnapshot);
  EXPECT_EQ(outputOf([] { EXPECT_STREQ(dumpStackSnapshot(-1, 7), "NOT YET..\n"); }), kSnapshot);
  EXPECT_EQ(oneThread.snapshotsOf, (std::vector<pid_t>{40, -1}));
  EXPECT_EQ(outputOf([] { dump_stack_snapshot(nullptr); }), "");
}

// Also for the same program again, whose path must not be read once it was released.
TEST_F(ThreadsReport, DumpIsASnapshotAndTheHeader) {
  for (const char *path : {"/bin/a", "/bin/a", "/bin/b", ""}) {
    std::strncpy(record_.path, path, sizeof record_.path - 1);
    EXPECT_EQ(outputOf([this] { dump_thread_information(&record_); }),
              std::string(kSnapshot).append(kHeader))
        << path;
  }
  EXPECT_EQ(oneThread.snapshotsOf, (std::vector<pid_t>{40, 40, 40, 40}));
}

TEST_F(ThreadsReport, DumpHasItsHeaderWithoutASnapshotToo) {
  oneThread.privileges = {false};
  testing::internal::CaptureStderr();
  EXPECT_EQ(outputOf([this] { dump_thread_information(&record_); }),
            std::string("RC: 1\n").append(kHeader));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "sswc: Operation not permitted\n");
}

}  // namespace
