#include "proc/jetsam.h"

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <random>

#include "darwin/errors.h"
#include "tests/unit/freed.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::errorOutputOf;
using sampled::SampledTest;
using Entry = darwin::memorystatus_priority_entry;

using List = std::unique_ptr<JetsamList, Freed>;

class JetsamTest : public SampledTest {
 protected:
  List take() {
    List list;
    errors = errorOutputOf([&] { list.reset(getMemoryStatusPriorityList()); });
    return list;
  }

  std::string errors;
};

TEST_F(JetsamTest, ListIsInOrderOfProcessIDs) {
  machine.entries = {{300, 0, 1, 50, 7}, {5, 3, 2, 60, 0}, {-1, 4, 3, 0, 0}, {41, 10, 4, 70, 9}};
  const List list = take();
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->byteCount, 4 * 24);
  EXPECT_EQ(list->entries[0].pid, -1);
  EXPECT_EQ(list->entries[1].pid, 5);
  EXPECT_EQ(list->entries[2].pid, 41);
  EXPECT_EQ(list->entries[3].pid, 300);
  EXPECT_EQ(list->entries[3].user_data, 1u);
  EXPECT_EQ(list->entries[3].limit, 50);
  EXPECT_EQ(list->entries[3].state, 7u);
  EXPECT_EQ(errors, "");
}

TEST_F(JetsamTest, LookupsFindEveryEntryOfALongList) {
  std::mt19937 random(5);
  for (int32_t pid = 0; pid < 700; pid += 2) machine.entries.push_back({pid, pid + 1, 0, pid, 0});
  std::shuffle(machine.entries.begin(), machine.entries.end(), random);
  const List list = take();
  for (int32_t pid = 0; pid < 700; pid++) {
    const Entry *entry = getJetsamPropertiesOfPID(pid, list.get());
    if (pid % 2 == 0) {
      ASSERT_NE(entry, nullptr) << pid;
      EXPECT_EQ(entry->pid, pid);
      EXPECT_EQ(entry->limit, pid);
      EXPECT_EQ(getMemoryStatusPriorityOfPID(pid, list.get()), pid + 1);
    } else {
      EXPECT_EQ(entry, nullptr) << pid;
      EXPECT_EQ(getMemoryStatusPriorityOfPID(pid, list.get()), -1);
    }
  }
  EXPECT_EQ(getJetsamPropertiesOfPID(-5, list.get()), nullptr);
  EXPECT_EQ(getJetsamPropertiesOfPID(INT32_MAX, list.get()), nullptr);
}

TEST_F(JetsamTest, LookupAnswersAPlaceInsideTheList) {
  machine.entries = {{5, 3, 0, 60, 0}, {9, 3, 0, 60, 0}};
  const List list = take();
  EXPECT_EQ(getJetsamPropertiesOfPID(9, list.get()), &list->entries[1]);
}

TEST_F(JetsamTest, NoListIsMinusTwo) {
  EXPECT_EQ(reinterpret_cast<intptr_t>(getJetsamPropertiesOfPID(5, nullptr)), -2);
  EXPECT_EQ(getMemoryStatusPriorityOfPID(5, nullptr), -2);
}

TEST_F(JetsamTest, EmptyListHoldsNobody) {
  const List list = take();
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->byteCount, 0);
  EXPECT_EQ(getJetsamPropertiesOfPID(0, list.get()), nullptr);
  EXPECT_EQ(getMemoryStatusPriorityOfPID(0, list.get()), -1);
}

TEST_F(JetsamTest, RefusedSizeIsReportedAndGivesNoList) {
  machine.entries = {{5, 3, 0, 60, 0}};
  machine.privileges = {false};
  EXPECT_EQ(take(), nullptr);
  EXPECT_EQ(errors, "memorystatus_control: Operation not permitted\n");
}

TEST_F(JetsamTest, RefusedContentsGiveAListThatHoldsNobody) {
  machine.entries = {{0, 1, 0, 2, 0}, {5, 3, 0, 60, 0}};
  machine.privileges = {true, false};
  const List list = take();
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->byteCount, -1);
  EXPECT_EQ(getJetsamPropertiesOfPID(5, list.get()), nullptr);
  EXPECT_EQ(getMemoryStatusPriorityOfPID(0, list.get()), -1);
  EXPECT_EQ(errors, "");
}

TEST_F(JetsamTest, LookupsTakeTheFirstEntryWhateverTheOrder) {
  alignas(JetsamList) unsigned char bytes[sizeof(JetsamList) + 4 * sizeof(Entry)] = {};
  JetsamList *list = reinterpret_cast<JetsamList *>(bytes);
  list->byteCount = 4 * 24;
  const Entry entries[] = {{9, 1, 0, 60, 0}, {5, 2, 0, 70, 0}, {9, 3, 0, 80, 0}, {2, 4, 0, 90, 0}};
  std::copy(std::begin(entries), std::end(entries), list->entries);
  EXPECT_EQ(getJetsamPropertiesOfPID(9, list), &list->entries[0]);
  EXPECT_EQ(getMemoryStatusPriorityOfPID(5, list), 2);
  EXPECT_EQ(getMemoryStatusPriorityOfPID(2, list), 4);
  EXPECT_EQ(getMemoryStatusPriorityOfPID(3, list), -1);
}

TEST_F(JetsamTest, PartOfAnEntryAtTheEndIsNotLookedAt) {
  alignas(JetsamList) unsigned char bytes[sizeof(JetsamList) + 2 * sizeof(Entry)] = {};
  JetsamList *list = reinterpret_cast<JetsamList *>(bytes);
  list->entries[0] = {5, 3, 0, 60, 0};
  list->entries[1] = {9, 4, 0, 70, 0};
  list->byteCount = 47;
  EXPECT_EQ(getMemoryStatusPriorityOfPID(5, list), 3);
  EXPECT_EQ(getMemoryStatusPriorityOfPID(9, list), -1);
}

TEST_F(JetsamTest, ControlIsTheSystemCall) {
  machine.entries = {{5, 3, 0, 60, 0}};
  EXPECT_EQ(memorystatus_control(1, 0, 0, nullptr, 0), 24);
  Entry entry{};
  EXPECT_EQ(memorystatus_control(1, 0, 0, &entry, sizeof entry), 24);
  EXPECT_EQ(entry.pid, 5);
  EXPECT_EQ(memorystatus_control(1, 0, 0, &entry, sizeof entry - 1), -1);
  EXPECT_EQ(errno, darwin::DARWIN_EINVAL);
  EXPECT_EQ(memorystatus_control(99, 0, 0, nullptr, 0), -1);
}

TEST_F(JetsamTest, EntryOfOneProcess) {
  machine.entries = {{300, 0, 1, 50, 7}, {5, 3, 2, 60, 0}};
  Entry entry{};
  EXPECT_EQ(errorOutputOf([&] { EXPECT_EQ(getMemoryStatusEntry(5, &entry), 0); }), "");
  EXPECT_EQ(entry.pid, 5);
  EXPECT_EQ(entry.priority, 3);
  EXPECT_EQ(entry.user_data, 2u);
  EXPECT_EQ(entry.limit, 60);
  EXPECT_EQ(getMemoryStatusEntry(6, &entry), darwin::DARWIN_ESRCH);
  machine.entries.clear();
  EXPECT_EQ(getMemoryStatusEntry(5, &entry), darwin::DARWIN_ESRCH);
  EXPECT_EQ(entry.pid, 5) << "left alone";
}

TEST_F(JetsamTest, EntryOfOneProcessThatCantBeRead) {
  machine.entries = {{5, 3, 2, 60, 0}};
  Entry entry{};
  // The first is the question for the size, the second that for the list.
  for (const std::vector<bool> &privileges : {std::vector{false}, std::vector{true, false}}) {
    machine.privileges = privileges;
    EXPECT_EQ(
        errorOutputOf([&] { EXPECT_EQ(getMemoryStatusEntry(5, &entry), darwin::DARWIN_EPERM); }),
        "");
  }
  EXPECT_EQ(entry.pid, 0);
}

TEST_F(JetsamTest, SettingABandKeepsTheUserData) {
  machine.entries = {{4, 1, 11, 10, 0}, {5, 3, uint64_t{1} << 40, 60, 0}};
  EXPECT_EQ(setMemoryStatusPriority(5, 7), 0);
  EXPECT_EQ(machine.entries[1].priority, 7);
  EXPECT_EQ(machine.entries[1].user_data, uint64_t{1} << 40);
  EXPECT_EQ(machine.entries[1].limit, 60);
  EXPECT_EQ(machine.entries[0].priority, 1);
  EXPECT_EQ(setMemoryStatusPriority(5, -1), 0);
  EXPECT_EQ(machine.entries[1].priority, fake_machine::kDefaultBand);
}

TEST_F(JetsamTest, BandsThatAreRefused) {
  machine.entries = {{5, 3, 2, 60, 0}};
  EXPECT_EQ(setMemoryStatusPriority(5, 22), darwin::DARWIN_EINVAL);
  EXPECT_EQ(setMemoryStatusPriority(6, 7), darwin::DARWIN_ESRCH);
  machine.refusals["setMemoryStatusPlace"] = darwin::DARWIN_EBUSY;
  EXPECT_EQ(setMemoryStatusPriority(5, 7), darwin::DARWIN_EBUSY);
  machine.refusals["memoryStatusList"] = darwin::DARWIN_ENOTSUP;
  EXPECT_EQ(setMemoryStatusPriority(5, 7), darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(machine.entries[0].priority, 3);
}

TEST_F(JetsamTest, SettingALimitKeepsWhetherItIsFatal) {
  machine.entries = {{4, 1, 0, 10, 0}, {5, 3, 2, 60, 0}};
  machine.limits[5] = {60, 1, 40, 0};
  EXPECT_EQ(setMemoryStatusLimit(5, 75), 0);
  EXPECT_EQ(machine.limits[5].memlimit_active, 75);
  EXPECT_EQ(machine.limits[5].memlimit_active_attr, 1u);
  EXPECT_EQ(machine.limits[5].memlimit_inactive, 75);
  EXPECT_EQ(machine.limits[5].memlimit_inactive_attr, 0u);
  EXPECT_EQ(machine.entries[1].limit, 75);
  EXPECT_EQ(machine.entries[1].priority, 3);
  EXPECT_EQ(machine.entries[0].limit, 10);
}

TEST_F(JetsamTest, LimitsThatAreRefused) {
  machine.entries = {{5, 3, 2, 60, 0}};
  machine.limits[5] = {60, 1, 40, 0};
  EXPECT_EQ(setMemoryStatusLimit(6, 75), darwin::DARWIN_ESRCH);
  machine.refusals["setMemoryLimits"] = darwin::DARWIN_EBUSY;
  EXPECT_EQ(setMemoryStatusLimit(5, 75), darwin::DARWIN_EBUSY);
  machine.refusals["memoryLimits"] = darwin::DARWIN_ENOTSUP;
  EXPECT_EQ(setMemoryStatusLimit(5, 75), darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(machine.limits[5].memlimit_active, 60);
}

TEST_F(JetsamTest, ComparingProcessIDsNeverSaysEqual) {
  const Entry one = {1, 9, 0, 0, 0};
  const Entry two = {2, 3, 0, 0, 0};
  const Entry lowest = {INT32_MIN, 3, 0, 0, 0};
  EXPECT_EQ(compare_jetsam_pids(&two, &one), 1);
  EXPECT_EQ(compare_jetsam_pids(&one, &two), -1);
  EXPECT_EQ(compare_jetsam_pids(&one, &one), -1);
  EXPECT_EQ(compare_jetsam_pids(&two, &lowest), 1);
}

TEST_F(JetsamTest, ComparingBandsSaysEqual) {
  const Entry low = {9, 1, 0, 0, 0};
  const Entry high = {1, 2, 0, 0, 0};
  const Entry alsoHigh = {5, 2, 0, 0, 0};
  const Entry lowest = {5, INT32_MIN, 0, 0, 0};
  EXPECT_EQ(compare_jetsam_priorities(&high, &low), 1);
  EXPECT_EQ(compare_jetsam_priorities(&low, &high), -1);
  EXPECT_EQ(compare_jetsam_priorities(&high, &alsoHigh), 0);
  EXPECT_EQ(compare_jetsam_priorities(&high, &lowest), 1);
}

}  // namespace
