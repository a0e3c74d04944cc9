// What the sampler asks the kernel for, to the byte, and what it makes of answers that a sound
// kernel does not give: of odd sizes, larger than the buffer, negative.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include "darwin/libproc.h"
#include "proc/sampler.h"
#include "tests/unit/sampled_machine.h"
#include "tests/unit/wrapped_calls.h"

namespace {

struct Call {
  int flavour;
  int size;

  bool operator==(const Call &) const = default;
};

// In place of the calls of these names while they are set; null lets a call through.
std::function<int(int flavour, void *buffer, int size)> g_info;
std::function<int(void *buffer, int size)> g_list;

}  // namespace

std::function<int(void *buffer, int size)> wrapped_calls::descriptorInfo;

// Caught at link time.
extern "C" {

int __real_proc_pidinfo(int pid, int flavor, uint64_t arg, void *buffer, int buffersize);
int __real_proc_pidfdinfo(int pid, int fd, int flavor, void *buffer, int buffersize);
int __real_proc_listpids(uint32_t type, uint32_t typeinfo, void *buffer, int buffersize);

int __wrap_proc_pidinfo(int pid, int flavor, uint64_t arg, void *buffer, int buffersize) {
  return g_info ? g_info(flavor, buffer, buffersize)
                : __real_proc_pidinfo(pid, flavor, arg, buffer, buffersize);
}

int __wrap_proc_pidfdinfo(int pid, int fd, int flavor, void *buffer, int buffersize) {
  return wrapped_calls::descriptorInfo ? wrapped_calls::descriptorInfo(buffer, buffersize)
                                       : __real_proc_pidfdinfo(pid, fd, flavor, buffer, buffersize);
}

int __wrap_proc_listpids(uint32_t type, uint32_t typeinfo, void *buffer, int buffersize) {
  return g_list ? g_list(buffer, buffersize)
                : __real_proc_listpids(type, typeinfo, buffer, buffersize);
}

}  // extern "C"

namespace {

using namespace sondex;
using sampled::errorOutputOf;
using sampled::kPid;
using sampled::SampledTest;

class Answers : public SampledTest {
 protected:
  Answers() : record(static_cast<ProcessRecord *>(std::calloc(1, sizeof(ProcessRecord)))) {}
  ~Answers() override {
    g_info = nullptr;
    wrapped_calls::descriptorInfo = nullptr;
    g_list = nullptr;
    releaseRecord(record);
    std::free(record);
  }

  ProcessRecord *record;
};

TEST_F(Answers, AreAskedForInTheSizesOfTheirStructures) {
  std::vector<Call> calls;
  g_info = [&calls](int flavour, void *buffer, int size) {
    calls.push_back({flavour, size});
    std::memset(buffer, 0, static_cast<size_t>(size));
    if (flavour == 2) static_cast<darwin::proc_taskallinfo *>(buffer)->ptinfo.pti_threadnum = 3;
    return flavour == 1 ? 0 : size;
  };
  for (const auto &[generation, coalitionSize] : {std::pair(10, 32), std::pair(11, 40)}) {
    g_OsVer = generation;
    calls.clear();
    getProcInfo(kPid, record, nullptr);
    EXPECT_EQ(calls, (std::vector<Call>{{2, 232},
                                        {12, 16},
                                        {6, 3 * 8},
                                        {5, 112},
                                        {5, 112},
                                        {5, 112},
                                        {1, 1024},
                                        {20, coalitionSize}}));
  }
}

TEST_F(Answers, WholeOnesAreNoFailureOfTheCoalitions) {
  const sampled::Variable debug("ZDEBUG", "1");
  int answer = 32;
  g_info = [&answer](int, void *, int) { return answer; };
  g_OsVer = 10;
  EXPECT_EQ(errorOutputOf([this] { getProcCoalitionInfo(kPid, record); }), "");
  answer = 40;
  EXPECT_EQ(errorOutputOf([this] {
              errno = darwin::DARWIN_EPERM;
              getProcCoalitionInfo(kPid, record);
            }),
            "RC: 40\ncoalition: Operation not permitted\n");
}

TEST_F(Answers, ThatAreNegativeAreFailures) {
  g_info = [](int, void *, int) {
    errno = darwin::DARWIN_EPERM;
    return -1;
  };
  EXPECT_EQ(errorOutputOf([this] { getProcInfo(kPid, record, nullptr); }),
            "proc_pidinfo: Operation not permitted\n");
  EXPECT_EQ(record->numFDs, 0);
  EXPECT_EQ(record->fdDetails, nullptr);
}

TEST_F(Answers, OfDescriptorsCountWholeEntriesThatFit) {
  const std::pair<int, int32_t> kRows[] = {
      {INT_MIN, 0}, {-8, 0},     {0, 0},      {7, 0},      {8, 1},      {15, 1},
      {1016, 127},  {1024, 128}, {1025, 128}, {1032, 128}, {8192, 128}, {INT_MAX, 128},
  };
  for (const auto &[answer, expected] : kRows) {
    SCOPED_TRACE(answer);
    g_info = [size = answer](int, void *, int) { return size; };
    getProcFDInfo(kPid, record);
    EXPECT_EQ(record->numFDs, expected);
    EXPECT_EQ(record->fdDetails != nullptr, expected > 0);
  }
}

TEST_F(Answers, OfThreadsLongerThanAskedAreNotFollowed) {
  g_info = [](int flavour, void *buffer, int size) {
    if (flavour == 2) static_cast<darwin::proc_taskallinfo *>(buffer)->ptinfo.pti_threadnum = 2;
    if (flavour == 5) static_cast<darwin::proc_threadinfo *>(buffer)->pth_cpu_usage = 10;
    return flavour == 1 ? 0 : flavour == 6 ? INT_MAX : size;
  };
  getProcInfo(kPid, record, nullptr);
  EXPECT_EQ(record->numThreads, 2);
  EXPECT_EQ(record->totalCPU, 20);
}

TEST_F(Answers, OfOneDescriptorBelowZeroEndTheProgram) {
  darwin::proc_fdinfo entry = {0, darwin::PROX_FDTYPE_PIPE};
  g_info = [&entry](int, void *buffer, int) {
    std::memcpy(buffer, &entry, sizeof entry);
    return static_cast<int>(sizeof entry);
  };
  int answer = -1;
  wrapped_calls::descriptorInfo = [&answer](void *, int size) {
    EXPECT_EQ(size, 1024);
    errno = darwin::DARWIN_EPERM;
    return answer;
  };
  EXPECT_EXIT(getProcFDInfo(kPid, record), testing::ExitedWithCode(0),
              testing::Eq("proc_pidfinfo: Operation not permitted\n"));
  answer = 0;
  EXPECT_EQ(getProcFDInfo(kPid, record), 0);
  answer = INT_MAX;
  EXPECT_EQ(getProcFDInfo(kPid, record), 0);
  entry.proc_fdtype = darwin::PROX_FDTYPE_FSEVENTS;
  answer = -1;
  EXPECT_EQ(getProcFDInfo(kPid, record), -1) << "it isn't asked about";
}

TEST_F(Answers, OfTheListDecideHowManyAreSampled) {
  const std::pair<int, int32_t> kRows[] = {{1, 0},  {4, 0},  {75, 0}, {76, 0},
                                           {79, 0}, {80, 1}, {83, 1}, {84, 2}};
  for (const auto &[size, expected] : kRows) {
    SCOPED_TRACE(size);
    int fetched = 0;
    bool filled = true;
    g_list = [&, proposed = size](void *buffer, int room) {
      if (buffer == nullptr) return proposed;
      fetched = room;
      const unsigned char *bytes = static_cast<const unsigned char *>(buffer);
      filled = std::all_of(bytes, bytes + room, [](unsigned char b) { return b == 0xff; });
      return INT_MAX;  // nobody looks at it
    };
    TableView table = {};
    errorOutputOf([&table] { table = getPIDList(); });
    EXPECT_EQ(table.count, expected);
    EXPECT_EQ(fetched, size);
    EXPECT_TRUE(filled);
    releaseProcessTable(table.records);
  }
}

TEST_F(Answers, WithoutAListEndTheProgram) {
  for (const int size : {0, -1, INT_MIN}) {
    SCOPED_TRACE(size);
    g_list = [size](void *, int) {
      errno = darwin::DARWIN_EPERM;
      return size;
    };
    EXPECT_EXIT(getPIDList(), testing::ExitedWithCode(10),
                testing::StartsWith("proc_listpids: Operation not permitted\n"));
  }
}

}  // namespace
