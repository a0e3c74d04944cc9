// What the statistics client's reader costs: a poll's answer for a thousand sources whose owners
// are known, in the messages of a kernel that sends each by itself and of one that puts many into a
// datagram. The client polls once a second. Processor time of the thread that reads.
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "nstat/accounting.h"
#include "nstat/client.h"
#include "nstat/layouts.h"
#include "nstat/places.h"

namespace {

using Datagram = std::vector<uint8_t>;

constexpr uint64_t kSources = 1000;
constexpr size_t kLargestDatagram = 4096;

template <typename T>
void put(Datagram &message, size_t offset, T value) {
  std::memcpy(message.data() + offset, &value, sizeof value);
}

Datagram countsOf(uint64_t reference) {
  const size_t size = sondex::statisticsLayout->counts + 112;
  Datagram message(size);
  put(message, 8, uint32_t{10004});
  if (sondex::statisticsLayout->tellsLength) put(message, 12, static_cast<uint16_t>(size));
  if (sondex::statisticsLayout->hasWideReferences) {
    put(message, 16, reference);
  } else {
    put(message, 16, static_cast<uint32_t>(reference));
  }
  put(message, sondex::statisticsLayout->counts + 8, reference * 1000);
  return message;
}

std::vector<Datagram> answerToPoll() {
  std::vector<Datagram> datagrams;
  for (uint64_t source = 1; source <= kSources; source++) {
    const Datagram counts = countsOf(source);
    const bool isRoomLeft = sondex::statisticsLayout->tellsLength && !datagrams.empty() &&
                            datagrams.back().size() + counts.size() <= kLargestDatagram;
    if (!isRoomLeft) datagrams.emplace_back();
    datagrams.back().insert(datagrams.back().end(), counts.begin(), counts.end());
  }
  return datagrams;
}

double threadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void poll(benchmark::State &state, const char *version) {
  sondex::chooseStatisticsLayout(version);
  const std::vector<Datagram> answer = answerToPoll();
  for (const Datagram &datagram : answer) sondex::print_nstat_msg(datagram.data(), datagram.size());
  for (auto &owner : sondex::process_pid_info) sondex::store(owner, 321);
  for (auto _ : state) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
      state.SkipWithError("no socket");
      break;
    }
    std::thread kernel([&] {
      for (const Datagram &datagram : answer) {
        if (write(ends[1], datagram.data(), datagram.size()) < 0) break;
      }
      close(ends[1]);
    });
    const double began = threadSeconds();
    sondex::readNotifications(ends[0]);
    state.SetIterationTime(threadSeconds() - began);
    kernel.join();
    close(ends[0]);
  }
  state.counters["datagrams"] = static_cast<double>(answer.size());
  sondex::freeSourcePlaces();
  for (auto &owner : sondex::process_pid_info) sondex::store(owner, 0);
}

BENCHMARK_CAPTURE(poll, one_message_each, "xnu-2782.40.9")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(poll, many_messages_each, "xnu-8020.140.41")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
