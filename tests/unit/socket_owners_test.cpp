#include "fds/socket_owners.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "proc/process_table.h"
#include "tests/unit/display_state.h"
#include "tests/unit/socket_details.h"

namespace {

using namespace sondex;
using socket_details::addDescriptor;
using socket_details::addSocket;
using socket_details::local;
using socket_details::ofKind;
using socket_details::onPort;

class OwnersOfSockets : public testing::Test {
 protected:
  static ProcessRecord *makeCurrent(int32_t count) {
    ProcessRecord *table = allocateProcessTable(static_cast<size_t>(count));
    store(g_process_information, table);
    store(num_procs, count);
    return table;
  }

  static ProcessRecord *makePrevious(int32_t count) {
    ProcessRecord *table = allocateProcessTable(static_cast<size_t>(count));
    store(previous_num_procs, count);
    store(g_previous_process_information, table);
    return table;
  }

  static ProcessRecord *onPortOf(uint16_t port) { return ownerOfIPv4Port(htons(port)); }

  DisplayStateGuard guard;
};

TEST_F(OwnersOfSockets, WithoutATableAreNone) {
  EXPECT_EQ(onPortOf(0), nullptr);
  EXPECT_EQ(ownerOfSocket(0), nullptr);
}

TEST_F(OwnersOfSockets, OfAnEmptyTableAreNone) {
  makeCurrent(1);
  EXPECT_EQ(onPortOf(0), nullptr);
  EXPECT_EQ(ownerOfSocket(0), nullptr);
  store(num_procs, 0);
  EXPECT_EQ(onPortOf(0), nullptr);
  EXPECT_EQ(ownerOfSocket(0), nullptr);
}

TEST_F(OwnersOfSockets, AreTheFirstInTheTablesOrder) {
  ProcessRecord *table = makeCurrent(4);
  addSocket(table[1], onPort(22));
  addSocket(table[1], local(0x8000));
  addSocket(table[2], local(0x9000));
  addSocket(table[2], onPort(80));
  addSocket(table[3], onPort(22));
  addSocket(table[3], local(0x8000));
  EXPECT_EQ(onPortOf(22), &table[1]);
  EXPECT_EQ(onPortOf(80), &table[2]);
  EXPECT_EQ(onPortOf(443), nullptr);
  EXPECT_EQ(ownerOfSocket(0x8000), &table[1]);
  EXPECT_EQ(ownerOfSocket(0x9000), &table[2]);
  EXPECT_EQ(ownerOfSocket(0xA000), nullptr);
}

TEST_F(OwnersOfSockets, OfPortsAreTakenInNetworkOrder) {
  ProcessRecord *table = makeCurrent(2);
  addSocket(table[0], onPort(0x1234));
  addSocket(table[1], onPort(0x3412));
  EXPECT_EQ(ownerOfIPv4Port(htons(0x1234)), &table[0]);
  EXPECT_EQ(ownerOfIPv4Port(htons(0x3412)), &table[1]);
}

TEST_F(OwnersOfSockets, OfPortsAreThoseOfIPv4SocketsOnly) {
  ProcessRecord *table = makeCurrent(4);
  darwin::socket_fdinfo info = onPort(22);
  info.psi.soi_family = 30;
  addSocket(table[0], info);
  info.psi.soi_family = 1;
  addSocket(table[1], info);
  addDescriptor(table[2], darwin::PROX_FDTYPE_VNODE, onPort(22));
  EXPECT_EQ(onPortOf(22), nullptr);
  addSocket(table[3], onPort(23));
  store(g_process_information, nullptr);
  releaseProcessTable(table);
  table = makeCurrent(2);
  darwin::socket_fdinfo udp = onPort(22);
  udp.psi.soi_type = 2;
  udp.psi.soi_protocol = 17;
  addSocket(table[1], udp);
  EXPECT_EQ(onPortOf(22), &table[1]) << "of any protocol";
}

TEST_F(OwnersOfSockets, OfKernelAddressesAreSocketsOfAnyFamily) {
  ProcessRecord *table = makeCurrent(3);
  addDescriptor(table[0], darwin::PROX_FDTYPE_PIPE, local(0x8000));
  darwin::socket_fdinfo info = ofKind(30, 1, 6);
  info.psi.soi_so = 0x8000;
  addSocket(table[1], info);
  addSocket(table[2], local(UINT64_MAX));
  EXPECT_EQ(ownerOfSocket(0x8000), &table[1]);
  EXPECT_EQ(ownerOfSocket(UINT64_MAX), &table[2]);
}

TEST_F(OwnersOfSockets, OfSlotsThatAreNotThereAreNone) {
  ProcessRecord *table = makeCurrent(4);
  table[0].numFDs = 5;
  for (int i = 0; i < 5; i++) table[0].fds[i] = {i, darwin::PROX_FDTYPE_SOCKET};
  ASSERT_EQ(table[0].fdDetails, nullptr);
  addSocket(table[1], onPort(22));
  table[1].numFDs = -1;
  // As many as there are slots; the count says more.
  for (int i = 0; i < kFDSlots; i++) addSocket(table[2], local(0x5000));
  table[2].numFDs = INT32_MAX;
  addSocket(table[3], onPort(22));
  EXPECT_EQ(onPortOf(22), &table[3]);
  EXPECT_EQ(ownerOfSocket(0x5000), &table[2]);
  EXPECT_EQ(ownerOfSocket(0x6000), nullptr);
}

TEST_F(OwnersOfSockets, InATableMadeElsewhereAreFoundToo) {
  std::vector<ProcessRecord> table(3);
  addSocket(table[1], onPort(22));
  addSocket(table[2], onPort(22));
  addSocket(table[2], local(0x8000));
  store(g_process_information, table.data());
  store(num_procs, 3);
  EXPECT_EQ(onPortOf(22), &table[1]);
  EXPECT_EQ(onPortOf(23), nullptr);
  EXPECT_EQ(ownerOfSocket(0x8000), &table[2]);
  EXPECT_EQ(ownerOfSocket(0x8001), nullptr);
  // There is no index of it that could go out of date.
  releaseRecord(&table[1]);
  EXPECT_EQ(onPortOf(22), &table[2]);
  for (ProcessRecord &record : table) releaseRecord(&record);
  store(g_process_information, nullptr);
}

TEST_F(OwnersOfSockets, AreOfThePreviousTableWhenThereIsOne) {
  ProcessRecord *current = makeCurrent(2);
  addSocket(current[1], onPort(22));
  addSocket(current[1], local(0x8000));
  EXPECT_EQ(onPortOf(22), &current[1]);
  EXPECT_EQ(ownerOfSocket(0x8000), &current[1]);
  ProcessRecord *previous = makePrevious(1);
  addSocket(previous[0], onPort(23));
  EXPECT_EQ(onPortOf(22), nullptr);
  EXPECT_EQ(ownerOfSocket(0x8000), nullptr);
  EXPECT_EQ(onPortOf(23), &previous[0]);
}

TEST_F(OwnersOfSockets, AreAmongTheRecordsThatTheTableHas) {
  ProcessRecord *table = makeCurrent(3);
  addSocket(table[2], onPort(22));
  addSocket(table[2], local(0x8000));
  store(num_procs, 2);
  EXPECT_EQ(onPortOf(22), nullptr);
  EXPECT_EQ(ownerOfSocket(0x8000), nullptr);
  store(num_procs, 3);
  EXPECT_EQ(onPortOf(22), &table[2]);
  EXPECT_EQ(ownerOfSocket(0x8000), &table[2]);
  store(num_procs, -1);
  EXPECT_EQ(onPortOf(22), nullptr);
}

TEST_F(OwnersOfSockets, FollowATableThatTakesTheMemoryOfAnother) {
  ProcessRecord *former = makeCurrent(3);
  addSocket(former[0], onPort(22));
  addSocket(former[0], local(0x8000));
  ASSERT_EQ(onPortOf(22), &former[0]);
  store(g_process_information, nullptr);
  releaseProcessTable(former);
  ProcessRecord *table = makeCurrent(3);
  ASSERT_EQ(table, former) << "else this shows nothing";
  addSocket(table[2], onPort(22));
  EXPECT_EQ(onPortOf(22), &table[2]);
  EXPECT_EQ(ownerOfSocket(0x8000), nullptr);
}

TEST_F(OwnersOfSockets, FollowATableWhoseRecordsMove) {
  ProcessRecord *table = makeCurrent(3);
  addSocket(table[0], onPort(22));
  addSocket(table[1], onPort(22));
  addSocket(table[0], local(0x8000));
  ASSERT_EQ(onPortOf(22), &table[0]);
  ASSERT_EQ(ownerOfSocket(0x8000), &table[0]);
  ProcessRecord *order[] = {&table[1], &table[2], &table[0]};
  reorderProcessTable({table, 3}, order);
  EXPECT_EQ(onPortOf(22), &table[0]) << "the second before";
  EXPECT_EQ(ownerOfSocket(0x8000), &table[2]);
}

TEST_F(OwnersOfSockets, AreIndexedOncePerTable) {
  ProcessRecord *table = makeCurrent(3);
  addSocket(table[1], onPort(22));
  addSocket(table[1], local(0x8000));
  ASSERT_EQ(onPortOf(22), &table[1]);
  // Behind the index's back: a look-up that went through the table would see these.
  addSocket(table[0], onPort(22));
  addSocket(table[0], local(0x8000));
  addSocket(table[2], onPort(23));
  EXPECT_EQ(onPortOf(22), &table[1]);
  EXPECT_EQ(ownerOfSocket(0x8000), &table[1]);
  EXPECT_EQ(onPortOf(23), nullptr);
}

TEST_F(OwnersOfSockets, AreTheSameWithAnIndexAsByAScan) {
  std::mt19937_64 random(4711);
  for (int round = 0; round < 15; round++) {
    const int32_t count = 1 + static_cast<int32_t>(random() % 60);
    ProcessRecord *table = makeCurrent(count);
    for (int32_t i = 0; i < count; i++) {
      for (uint64_t fds = random() % 9; fds > 0; fds--) {
        darwin::socket_fdinfo info = onPort(static_cast<uint16_t>(random() % 40));
        // Multiples of a power of two, which crowd an index.
        info.psi.soi_so = (random() % 200) << (round % 50);
        info.psi.soi_family = random() % 3 == 0 ? 1 : 2;
        addDescriptor(table[i], static_cast<uint32_t>(1 + random() % 2), info);
      }
    }
    for (uint16_t port = 0; port < 42; port++) {
      ProcessRecord *indexed = onPortOf(port);
      ProcessRecord *expected = nullptr;
      for (int32_t i = 0; i < count && expected == nullptr; i++) {
        for (int32_t fd = 0; fd < table[i].numFDs; fd++) {
          const auto *info = reinterpret_cast<const darwin::socket_fdinfo *>(
              table[i].fdDetails + static_cast<size_t>(fd) * kFDDetailSize);
          if (table[i].fds[fd].proc_fdtype == 2 && info->psi.soi_family == 2 &&
              info->psi.soi_proto.pri_in.insi_lport == htons(port))
            expected = &table[i];
        }
      }
      EXPECT_EQ(indexed, expected) << round << ", port " << port;
    }
    for (uint64_t number = 0; number < 210; number++) {
      const uint64_t address = number << (round % 50);
      ProcessRecord *expected = nullptr;
      for (int32_t i = 0; i < count && expected == nullptr; i++) {
        for (int32_t fd = 0; fd < table[i].numFDs; fd++) {
          const auto *info = reinterpret_cast<const darwin::socket_fdinfo *>(
              table[i].fdDetails + static_cast<size_t>(fd) * kFDDetailSize);
          if (table[i].fds[fd].proc_fdtype == 2 && info->psi.soi_so == address)
            expected = &table[i];
        }
      }
      EXPECT_EQ(ownerOfSocket(address), expected) << round << ", socket " << address;
    }
    store(g_process_information, nullptr);
    releaseProcessTable(table);
  }
}

// The numbers of a large server: a cost that grew with their square would show here.
TEST_F(OwnersOfSockets, OfManySocketsAreFoundAll) {
  constexpr int32_t kProcesses = 500;
  constexpr int32_t kSockets = 40;
  ProcessRecord *table = makeCurrent(kProcesses);
  for (int32_t i = 0; i < kProcesses; i++) {
    for (int32_t k = 0; k < kSockets; k++) {
      darwin::socket_fdinfo info = onPort(static_cast<uint16_t>(i * kSockets + k));
      info.psi.soi_so = 0x100 + static_cast<uint64_t>(i * kSockets + k) * 0x100;
      addSocket(table[i], info);
    }
  }
  for (int32_t i = 0; i < kProcesses * kSockets; i++) {
    ASSERT_EQ(onPortOf(static_cast<uint16_t>(i)), &table[i / kSockets]);
    ASSERT_EQ(ownerOfSocket(0x100 + static_cast<uint64_t>(i) * 0x100), &table[i / kSockets]);
  }
}

TEST_F(OwnersOfSockets, MayBeAskedWhileTheMainThreadReplacesTables) {
  const auto makeTable = [] {
    ProcessRecord *table = nullptr;
    while ((table = allocateProcessTable(2)) == nullptr) retireProcessTable(nullptr);
    addSocket(table[1], onPort(22));
    addSocket(table[1], local(0x8000));
    return table;
  };
  store(previous_num_procs, 2);
  store(g_previous_process_information, makeTable());
  std::atomic<bool> done{false};
  std::atomic<int> found{0};
  std::thread reader([&] {
    while (!done.load()) {
      enterProcessTables();
      const ProcessRecord *record = onPortOf(22);
      if (record != nullptr && record->numFDs == 2 && ownerOfSocket(0x8000) != nullptr) found++;
      leaveProcessTables();
    }
  });
  for (int round = 0; round < 1000 || found.load() == 0; round++) {
    ProcessRecord *former = load(g_previous_process_information);
    store(g_previous_process_information, makeTable());
    retireProcessTable(former);
  }
  done = true;
  reader.join();
  retireProcessTable(nullptr);
  EXPECT_GT(found.load(), 0);
}

}  // namespace
