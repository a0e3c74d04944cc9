// Kernel queues on a machine whose process events come from a script.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/kqueue.h"
#include "tests/unit/fake_machine.h"

namespace darwin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Event = struct darwin::kevent;
using Nanoseconds = std::chrono::nanoseconds;

constexpr uint32_t kAllNotes = NOTE_EXIT | NOTE_FORK | NOTE_EXEC;

// What the queues of one machine share with the test.
struct Script {
  std::deque<std::vector<host::ProcessEvent>> happenings;
  host::Errno watching = host::kAnswered;
  host::Errno waiting = host::kAnswered;
  bool throws = false;
  std::vector<pid_t> watched;
  std::vector<std::optional<Nanoseconds>> timeouts;
  int open = 0;
};

class ScriptedEvents : public host::ProcessEvents {
 public:
  explicit ScriptedEvents(Script &script) : script_(script) { script_.open++; }
  ~ScriptedEvents() override { script_.open--; }

  host::Errno watch(pid_t pid) override {
    errno = fake_machine::kForeignErrno;
    if (script_.watching == host::kAnswered) script_.watched.push_back(pid);
    return script_.watching;
  }
  void unwatch(pid_t pid) override { std::erase(script_.watched, pid); }
  host::Errno wait(std::optional<Nanoseconds> timeout,
                   std::vector<host::ProcessEvent> &events) override {
    if (script_.throws) throw std::bad_alloc();
    errno = fake_machine::kForeignErrno;
    script_.timeouts.push_back(timeout);
    events.clear();
    if (script_.waiting != host::kAnswered) return script_.waiting;
    if (script_.happenings.empty()) {
      // A wait without end would not come back.
      if (!timeout) return DARWIN_EDEADLK;
      return host::kAnswered;
    }
    events = script_.happenings.front();
    script_.happenings.pop_front();
    return host::kAnswered;
  }

 private:
  Script &script_;
};

class ScriptedMachine : public fake_machine::FakeMachine {
 public:
  Script script;
  host::Errno processEvents(std::unique_ptr<host::ProcessEvents> &events) override {
    if (refusal == host::kAnswered) events = std::make_unique<ScriptedEvents>(script);
    return refusal;
  }
};

Event change(uint64_t ident, uint16_t flags, uint32_t notes = kAllNotes) {
  Event event{};
  event.ident = ident;
  event.filter = EVFILT_PROC;
  event.flags = flags;
  event.fflags = notes;
  return event;
}

class Kqueue : public fake_machine::MachineTest<ScriptedMachine> {
 protected:
  Kqueue() : queue(darwin::kqueue()) { errno = 0; }
  ~Kqueue() override {
    closeQueue();
    // The state of closed queues goes with the next one.
    close(darwin::kqueue());
  }

  void closeQueue() {
    if (queue >= 0) close(queue);
    queue = -1;
  }
  int apply(const Event &event) const { return kevent(queue, &event, 1, nullptr, 0, nullptr); }
  // Up to `room` events without waiting.
  std::vector<Event> take(int room = 8) const {
    std::vector<Event> events(static_cast<size_t>(room));
    const timespec none = {0, 0};
    const int count = kevent(queue, nullptr, 0, events.data(), room, &none);
    EXPECT_GE(count, 0);
    events.resize(static_cast<size_t>(std::max(count, 0)));
    return events;
  }
  void happens(std::vector<host::ProcessEvent> events) {
    machine.script.happenings.push_back(std::move(events));
  }
  int failureOf(const Event &event) const {
    errno = 0;
    EXPECT_EQ(apply(event), -1);
    return errno;
  }

  int queue;
};

TEST_F(Kqueue, IsADescriptorOfItsOwn) {
  ASSERT_GE(queue, 0);
  EXPECT_EQ(fcntl(queue, F_GETFD), FD_CLOEXEC);
  const int other = darwin::kqueue();
  EXPECT_NE(other, queue);
  EXPECT_EQ(apply(change(7, EV_ADD)), 0);
  const Event removal = change(7, EV_DELETE);
  EXPECT_EQ(kevent(other, &removal, 1, nullptr, 0, nullptr), -1) << "registered with the first one";
  EXPECT_EQ(errno, DARWIN_ENOENT);
  close(other);
}

TEST_F(Kqueue, OtherDescriptorsAreNone) {
  const Event event = change(7, EV_ADD);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  for (const int descriptor : {-1, 9999, ends[0], STDERR_FILENO}) {
    errno = 0;
    EXPECT_EQ(kevent(descriptor, &event, 1, nullptr, 0, nullptr), -1);
    EXPECT_EQ(errno, DARWIN_EBADF);
  }
  close(ends[0]);
  close(ends[1]);
  const int closed = queue;
  closeQueue();
  EXPECT_EQ(kevent(closed, &event, 1, nullptr, 0, nullptr), -1);
  EXPECT_EQ(errno, DARWIN_EBADF);
}

TEST_F(Kqueue, ADuplicateIsTheSameQueue) {
  ASSERT_EQ(apply(change(7, EV_ADD)), 0);
  const int duplicate = dup(queue);
  closeQueue();
  queue = duplicate;
  happens({{7, NOTE_FORK}});
  EXPECT_EQ(take().size(), 1u);
}

TEST_F(Kqueue, ClosedOnesLeaveNothingBehind) {
  ASSERT_EQ(apply(change(7, EV_ADD)), 0);
  const auto count = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const auto before = count();
  for (int i = 0; i < 100; i++) {
    closeQueue();
    queue = darwin::kqueue();
    ASSERT_EQ(apply(change(7, EV_ADD)), 0);
    ASSERT_EQ(machine.script.open, 1);
  }
  EXPECT_EQ(count(), before);
}

TEST_F(Kqueue, RegistersAndReports) {
  Event event = change(7, EV_ADD);
  int mine = 0;
  event.udata = &mine;
  errno = 5;
  ASSERT_EQ(apply(event), 0);
  EXPECT_EQ(errno, 5);
  EXPECT_THAT(machine.script.watched, ElementsAre(7));
  EXPECT_THAT(machine.script.timeouts, IsEmpty()) << "without room there is no wait";

  happens({{7, NOTE_FORK}});
  const std::vector<Event> events = take();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].ident, 7u);
  EXPECT_EQ(events[0].filter, EVFILT_PROC);
  EXPECT_EQ(events[0].flags, EV_ADD | EV_CLEAR);
  EXPECT_EQ(events[0].fflags, NOTE_FORK);
  EXPECT_EQ(events[0].data, 0);
  EXPECT_EQ(events[0].udata, &mine);
  EXPECT_THAT(take(), IsEmpty()) << "reported once";
  happens({{7, NOTE_EXEC}});
  EXPECT_EQ(take().size(), 1u) << "still registered";
}

TEST_F(Kqueue, NotesAddUpUntilTheyAreReported) {
  ASSERT_EQ(apply(change(7, EV_ADD)), 0);
  happens({{7, NOTE_FORK}, {7, NOTE_FORK}, {7, NOTE_EXEC}});
  const std::vector<Event> events = take();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].fflags, NOTE_FORK | NOTE_EXEC);
}

TEST_F(Kqueue, WhatThereWasNoRoomForComesNext) {
  ASSERT_EQ(apply(change(7, EV_ADD)), 0);
  ASSERT_EQ(apply(change(8, EV_ADD)), 0);
  happens({{7, NOTE_FORK}, {8, NOTE_FORK}});
  std::vector<Event> events = take(1);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].ident, 7u);
  // What has happened meanwhile is part of the report, and nothing is waited for.
  happens({{8, NOTE_EXEC}});
  Event event{};
  ASSERT_EQ(kevent(queue, nullptr, 0, &event, 1, nullptr), 1);
  EXPECT_EQ(event.ident, 8u);
  EXPECT_EQ(event.fflags, NOTE_FORK | NOTE_EXEC);
  EXPECT_EQ(machine.script.timeouts.back(), Nanoseconds::zero());
}

TEST_F(Kqueue, NotesThatNobodyAskedForAreNotReported) {
  ASSERT_EQ(apply(change(7, EV_ADD, NOTE_EXEC)), 0);
  happens({{7, NOTE_FORK}});
  EXPECT_THAT(take(), IsEmpty());
  happens({{7, NOTE_FORK | NOTE_EXEC}, {9, NOTE_EXEC}});
  const std::vector<Event> events = take();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].fflags, NOTE_EXEC);
}

TEST_F(Kqueue, ExitEndsTheRegistration) {
  ASSERT_EQ(apply(change(7, EV_ADD)), 0);
  happens({{7, NOTE_FORK}, {7, NOTE_EXIT}});
  const std::vector<Event> events = take();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].fflags, NOTE_FORK | NOTE_EXIT);
  EXPECT_EQ(events[0].flags, EV_ADD | EV_CLEAR | EV_EOF | EV_ONESHOT);
  EXPECT_EQ(failureOf(change(7, EV_DELETE)), DARWIN_ENOENT);
}

TEST_F(Kqueue, ExitThatNobodyAskedForEndsItToo) {
  ASSERT_EQ(apply(change(7, EV_ADD, NOTE_FORK)), 0);
  happens({{7, NOTE_EXIT}});
  EXPECT_THAT(take(), IsEmpty());
  EXPECT_EQ(failureOf(change(7, EV_DELETE)), DARWIN_ENOENT);
  ASSERT_EQ(apply(change(8, EV_ADD, NOTE_FORK)), 0);
  happens({{8, NOTE_FORK}, {8, NOTE_EXIT}});
  const std::vector<Event> events = take();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].fflags, NOTE_FORK);
  EXPECT_EQ(events[0].flags & EV_EOF, EV_EOF);
}

TEST_F(Kqueue, OneShotEndsWithItsFirstReport) {
  ASSERT_EQ(apply(change(7, EV_ADD | EV_ONESHOT)), 0);
  happens({{7, NOTE_FORK}});
  EXPECT_EQ(take().size(), 1u);
  EXPECT_THAT(machine.script.watched, IsEmpty());
  EXPECT_EQ(failureOf(change(7, EV_DELETE)), DARWIN_ENOENT);
}

TEST_F(Kqueue, AddingAgainChangesWhatIsAskedFor) {
  ASSERT_EQ(apply(change(7, EV_ADD, NOTE_FORK)), 0);
  ASSERT_EQ(apply(change(7, EV_ADD, NOTE_EXEC)), 0);
  EXPECT_THAT(machine.script.watched, ElementsAre(7));
  happens({{7, NOTE_FORK}});
  EXPECT_THAT(take(), IsEmpty());
  happens({{7, NOTE_EXEC}});
  EXPECT_EQ(take().size(), 1u);
}

TEST_F(Kqueue, Removal) {
  ASSERT_EQ(apply(change(7, EV_ADD)), 0);
  ASSERT_EQ(apply(change(7, EV_DELETE)), 0);
  EXPECT_THAT(machine.script.watched, IsEmpty());
  happens({{7, NOTE_FORK}});
  EXPECT_THAT(take(), IsEmpty());
  EXPECT_EQ(failureOf(change(7, EV_DELETE)), DARWIN_ENOENT);
  EXPECT_EQ(failureOf(change(7, EV_ENABLE)), DARWIN_ENOENT);
}

TEST_F(Kqueue, NoSuchProcess) {
  machine.script.watching = DARWIN_ESRCH;
  EXPECT_EQ(failureOf(change(7, EV_ADD)), DARWIN_ESRCH);
  machine.script.watching = host::kAnswered;
  EXPECT_EQ(failureOf(change(7, EV_DELETE)), DARWIN_ENOENT) << "it was not kept";
}

TEST_F(Kqueue, FailureIsAnEventWhereThereIsRoom) {
  machine.script.watching = DARWIN_ESRCH;
  const Event event = change(7, EV_ADD);
  Event answer{};
  ASSERT_EQ(kevent(queue, &event, 1, &answer, 1, nullptr), 1);
  EXPECT_EQ(answer.ident, 7u);
  EXPECT_EQ(answer.flags, EV_ADD | EV_ERROR);
  EXPECT_EQ(answer.data, DARWIN_ESRCH);
  EXPECT_THAT(machine.script.timeouts, IsEmpty()) << "failures are not waited on";

  const Event two[] = {change(7, EV_ADD), change(8, EV_DELETE)};
  errno = 0;
  EXPECT_EQ(kevent(queue, two, 2, &answer, 1, nullptr), -1);
  EXPECT_EQ(errno, DARWIN_ENOENT) << "no room for the second";
}

TEST_F(Kqueue, RegisteringAndWaitingInOneCall) {
  const Event event = change(7, EV_ADD);
  happens({{7, NOTE_EXEC}});
  Event answer{};
  ASSERT_EQ(kevent(queue, &event, 1, &answer, 1, nullptr), 1);
  EXPECT_EQ(answer.fflags, NOTE_EXEC);
}

TEST_F(Kqueue, OtherFiltersAndFlags) {
  Event event = change(7, EV_ADD);
  for (const int16_t filter : {int16_t{0}, int16_t{1}, int16_t{-18}, int16_t{INT16_MIN}}) {
    event.filter = filter;
    EXPECT_EQ(failureOf(event), DARWIN_EINVAL) << filter;
  }
  event.filter = EVFILT_READ;
  EXPECT_EQ(failureOf(event), DARWIN_ENOTSUP);
  EXPECT_EQ(failureOf(change(7, EV_ADD | 0x8)), DARWIN_ENOTSUP);
  EXPECT_EQ(failureOf(change(7, EV_ADD, NOTE_FORK | 0x08000000)), DARWIN_ENOTSUP);
}

TEST_F(Kqueue, NullTimeoutHasNoEnd) {
  ASSERT_EQ(apply(change(7, EV_ADD)), 0);
  happens({{7, NOTE_FORK}});
  Event event{};
  EXPECT_EQ(kevent(queue, nullptr, 0, &event, 1, nullptr), 1);
  EXPECT_THAT(machine.script.timeouts, ElementsAre(std::nullopt));
}

TEST_F(Kqueue, TimeoutIsPassedOn) {
  ASSERT_EQ(apply(change(7, EV_ADD)), 0);
  happens({{7, NOTE_FORK}});
  Event event{};
  const timespec timeout = {3600, 500};
  EXPECT_EQ(kevent(queue, nullptr, 0, &event, 1, &timeout), 1);
  ASSERT_TRUE(machine.script.timeouts.at(0).has_value());
  EXPECT_LE(*machine.script.timeouts[0], std::chrono::seconds(3601));
  EXPECT_GT(*machine.script.timeouts[0], std::chrono::seconds(3000));
}

TEST_F(Kqueue, BadTimeouts) {
  Event event{};
  for (const timespec timeout :
       {timespec{-1, 0}, timespec{0, -1}, timespec{0, 1'000'000'000}, timespec{100'000'001, 0}}) {
    errno = 0;
    EXPECT_EQ(kevent(queue, nullptr, 0, &event, 1, &timeout), -1);
    EXPECT_EQ(errno, DARWIN_EINVAL);
  }
}

TEST_F(Kqueue, AnEmptyQueueWaits) {
  const timespec soon = {0, 1000};
  Event event{};
  EXPECT_EQ(kevent(queue, nullptr, 0, &event, 1, &soon), 0);
}

TEST_F(Kqueue, InterruptedWait) {
  ASSERT_EQ(apply(change(7, EV_ADD)), 0);
  machine.script.waiting = DARWIN_EINTR;
  Event event{};
  EXPECT_EQ(kevent(queue, nullptr, 0, &event, 1, nullptr), -1);
  EXPECT_EQ(errno, DARWIN_EINTR);
}

TEST_F(Kqueue, BadAddresses) {
  EXPECT_EQ(kevent(queue, nullptr, 1, nullptr, 0, nullptr), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  errno = 0;
  EXPECT_EQ(kevent(queue, nullptr, 0, nullptr, 1, nullptr), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  EXPECT_EQ(kevent(queue, nullptr, -1, nullptr, -1, nullptr), 0);
}

TEST_F(Kqueue, MachineWithoutEvents) {
  machine.refusal = DARWIN_ENOTSUP;
  EXPECT_EQ(failureOf(change(7, EV_ADD)), DARWIN_ENOTSUP);
  Event event{};
  EXPECT_EQ(kevent(queue, nullptr, 0, &event, 1, nullptr), -1);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
}

TEST_F(Kqueue, ExceptionsAreLackOfMemory) {
  ASSERT_EQ(apply(change(7, EV_ADD)), 0);
  machine.script.throws = true;
  Event event{};
  EXPECT_EQ(kevent(queue, nullptr, 0, &event, 1, nullptr), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
}

}  // namespace
}  // namespace darwin
