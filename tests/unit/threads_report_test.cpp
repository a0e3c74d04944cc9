#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "inspect/threads.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::outputOf;
using sampled::SampledTest;
using testing::EndsWith;

constexpr char kHeader[] =
    "TID             USER                                                    KERNEL\n";

class ThreadsReport : public SampledTest {
 protected:
  ThreadsReport() { record_.taskAllInfo.pbsd.pbi_pid = 40; }

  // What is written about these work queues.
  std::string queues(const darwin::proc_workqueueinfo &info) {
    record_.workqueueInfo = info;
    return outputOf([this] { result_ = dump_workqueue_information(&record_); });
  }

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

TEST_F(ThreadsReport, HasNoThreadsYet) {
  int result = 0;
  EXPECT_EQ(outputOf([&] { result = showProcThreads(&record_); }), "NO PROC THREADS YET\n");
  EXPECT_EQ(result, 20);
}

TEST_F(ThreadsReport, SnapshotAnswersAConstantText) {
  outputOf([] {
    EXPECT_STREQ(dumpStackSnapshot(40, 0), "NOT YET..\n");
    EXPECT_STREQ(dumpStackSnapshot(-1, 7), "NOT YET..\n");
  });
  EXPECT_EQ(outputOf([] { dump_stack_snapshot(nullptr); }), "");
}

// Also for the same program again, whose path must not be read once it was released, and for a
// process that is not there.
TEST_F(ThreadsReport, DumpEndsWithTheHeader) {
  for (const char *path : {"/bin/a", "/bin/a", "/bin/b", ""}) {
    std::strncpy(record_.path, path, sizeof record_.path - 1);
    EXPECT_THAT(outputOf([this] { dump_thread_information(&record_); }), EndsWith(kHeader)) << path;
  }
}

}  // namespace
