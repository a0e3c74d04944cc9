// Calls that a simulated device lets fail, and how it counts them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "darwin/stackshot.h"
#include "host/darwin/errors.h"
#include "host/simulator/calls.h"
#include "simulated_device.h"
#include "tests/unit/device_file_text.h"

namespace simulated_test {
namespace {

using device_file_test::deviceOf;
using host::simulator::CallForm;
using host::simulator::FailCall;
using host::simulator::indexOf;
using host::simulator::kCallForms;
using host::simulator::kQuestions;
using host::simulator::only;
using host::simulator::Question;
using host::simulator::questionsOf;

// One question each, in the order of the list of calls.
std::vector<Errno> askAll(SimulatedMachine &machine, int32_t pid) {
  host::KernelName name;
  std::vector<int32_t> pids;
  darwin::proc_taskallinfo task{};
  darwin::proc_bsdinfo bsd{};
  std::string path;
  darwin::proc_workqueueinfo queue{};
  std::vector<uint64_t> numbers;
  darwin::proc_threadinfo threadInfo{};
  darwin::proc_pidcoalitioninfo coalition{};
  std::vector<darwin::proc_fdinfo> open;
  darwin::proc_regionwithpathinfo region{};
  darwin::vnode_fdinfowithpath vnode{};
  darwin::socket_fdinfo socket{};
  darwin::psem_fdinfo semaphore{};
  darwin::pshm_fdinfo shared{};
  darwin::pipe_fdinfo pipe{};
  darwin::kqueue_fdinfo kqueue{};
  std::vector<darwin::kevent_extinfo> events;
  darwin::channel_fdinfo channel{};
  darwin::rusage_info_v4 usage{};
  uint32_t flags = 0;
  std::vector<uint8_t> blob;
  int32_t state = 0;
  int page = 0;
  std::vector<darwin::memorystatus_priority_entry> entries;
  darwin::memorystatus_memlimit_properties limits{};
  unsigned int number = 0;
  darwin::host_basic_info basic{};
  darwin::vm_statistics64 memory{};
  darwin::processor_cpu_load_info load{};
  darwin::timeval time{};
  darwin::loadavg averages{};
  darwin::xsw_usage swap{};
  host::ProcessArguments arguments;
  std::vector<host::NetworkInterface> interfaces;
  host::WirelessNetwork network;
  std::vector<host::NetworkSource> sources;
  host::GestaltAnswer answer;
  host::PowerStatus power;
  host::ThreadRegisters registers;
  std::vector<std::string> identifiers;
  uint32_t wanted = 0;
  uint32_t reclaimed = 0;
  std::unique_ptr<host::ProcessEvents> watch;
  return {machine.kernelName(name),
          machine.processIDs(pids),
          machine.taskAllInfo(pid, task),
          machine.bsdInfo(pid, false, bsd),
          machine.executablePath(pid, path),
          machine.workQueue(pid, queue),
          machine.threadHandles(pid, numbers),
          machine.threadInfo(pid, 5, threadInfo),
          machine.threadIDs(pid, numbers),
          machine.threadInfoByID(pid, 5, threadInfo),
          machine.coalition(pid, coalition),
          machine.descriptors(pid, 10, open),
          machine.region(pid, 0, region),
          machine.vnodeDescriptor(pid, 0, vnode),
          machine.socketDescriptor(pid, 0, socket),
          machine.semaphoreDescriptor(pid, 0, semaphore),
          machine.sharedMemoryDescriptor(pid, 0, shared),
          machine.pipeDescriptor(pid, 0, pipe),
          machine.kqueueDescriptor(pid, 0, kqueue),
          machine.kqueueEvents(pid, 0, events),
          machine.channelDescriptor(pid, 0, channel),
          machine.resourceUsage(pid, usage),
          machine.codeSigningFlags(pid, flags),
          machine.codeSignature(pid, blob),
          machine.sandboxCheck(pid) < 0 ? darwin::DARWIN_EIO : kAnswered,
          machine.containerPath(pid, path),
          machine.applicationState(pid, state),
          machine.memoryStatusList(entries),
          machine.setMemoryStatusPlace(pid, {}),
          machine.memoryLimits(pid, limits),
          machine.setMemoryLimits(pid, limits),
          machine.memoryStatusLevel(number),
          machine.hostBasicInfo(basic),
          machine.virtualMemory(memory),
          machine.processorCount(number),
          machine.processorLoad(0, load),
          machine.bootTime(time),
          machine.loadAverage(averages),
          machine.swapUsage(swap),
          machine.arguments(pid, arguments),
          machine.interfaces(interfaces),
          machine.wirelessNetwork("en0", network),
          machine.networkStatistics(),
          machine.networkSubscription(),
          machine.networkSources(sources),
          machine.gestaltAnswer("ProductName", answer),
          machine.powerStatus(power),
          machine.memoryPressure(false, 1, wanted, reclaimed),
          machine.processEvents(watch),
          machine.sendSignal(pid, 0),
          machine.taskPort(pid),
          machine.taskNamePort(pid),
          machine.kernelTaskPort(),
          machine.threadRegisters(pid, 5, registers),
          machine.readMemory(pid, 0, 1, &memory),
          machine.pages(pid, 0, 1, &page),
          machine.kernelExtensions(identifiers),
          machine.stackshot(pid, darwin::STACKSHOT_KCDATA_FORMAT, blob)};
}

TEST(SimulatedCallsTest, EveryFormIsOneQuestion) {
  std::set<std::pair<std::string_view, std::string_view>> seen;
  for (size_t i = 0; i < kQuestions; ++i) {
    EXPECT_TRUE(seen.emplace(kCallForms[i].call, kCallForms[i].form).second) << i;
    if (kCallForms[i].form.empty()) continue;
    EXPECT_EQ(questionsOf(kCallForms[i].call, kCallForms[i].form), uint64_t{1} << i);
  }
}

TEST(SimulatedCallsTest, NamesThatAreNotKnownAskNothing) {
  EXPECT_EQ(questionsOf("no_such_call"), 0U);
  EXPECT_EQ(questionsOf(""), 0U);
  EXPECT_EQ(questionsOf("sysctl", "kern.nothing"), 0U);
  EXPECT_EQ(questionsOf("uname", "vm.loadavg"), 0U);
  EXPECT_EQ(questionsOf("csops"), only(Question::codeSigningFlags) | only(Question::codeSignature));
}

// Each form fails where it says and nowhere else, with an error that no question has of itself.
TEST(SimulatedFaultsTest, EachFormFailsByItself) {
  SimulatedMachine quiet(device({process(9)}));
  const std::vector<Errno> usual = askAll(quiet, 9);
  ASSERT_EQ(usual.size(), kQuestions);
  for (size_t i = 0; i < kQuestions; ++i) {
    SimulatedMachine machine(device({process(9)}));
    machine.happen(FailCall{std::string(kCallForms[i].call),
                            std::string(kCallForms[i].form),
                            {},
                            darwin::DARWIN_EDEADLK});
    std::vector<Errno> expected = usual;
    const bool answersNoNumber = i == indexOf(Question::sandboxCheck);
    expected[i] = answersNoNumber ? darwin::DARWIN_EIO : darwin::DARWIN_EDEADLK;
    EXPECT_EQ(askAll(machine, 9), expected) << kCallForms[i].call << ' ' << kCallForms[i].form;
  }
}

TEST(SimulatedFaultsTest, WithoutAFormAllFormsFail) {
  SimulatedMachine machine(device({process(9)}));
  machine.happen(FailCall{"csops", "", {}, darwin::DARWIN_EPERM});
  uint32_t flags = 0;
  std::vector<uint8_t> blob;
  EXPECT_EQ(machine.codeSigningFlags(9, flags), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine.codeSignature(9, blob), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine.sandboxCheck(9), 0);
}

TEST(SimulatedFaultsTest, ForOneProcessOthersAreAnswered) {
  SimulatedMachine machine(device({process(9), process(10)}));
  machine.happen(FailCall{"proc_pidinfo", "PROC_PIDTASKALLINFO", 10, darwin::DARWIN_EPERM});
  darwin::proc_taskallinfo task{};
  EXPECT_EQ(machine.taskAllInfo(9, task), kAnswered);
  EXPECT_EQ(machine.taskAllInfo(10, task), darwin::DARWIN_EPERM);
  // About no process: never the one.
  machine.happen(FailCall{"uname", "", 10, darwin::DARWIN_EPERM});
  host::KernelName name;
  EXPECT_EQ(machine.kernelName(name), kAnswered);
}

// Each in force from the first question on, and for its process alone.
TEST(SimulatedFaultsTest, AProcessMayRefuseFromTheStart) {
  constexpr Question kRefused[] = {Question::taskAllInfo,
                                   Question::bsdInfo,
                                   Question::executablePath,
                                   Question::workQueue,
                                   Question::threadHandles,
                                   Question::threadInfo,
                                   Question::threadIDs,
                                   Question::threadInfoByID,
                                   Question::coalition,
                                   Question::descriptors,
                                   Question::region,
                                   Question::vnodeDescriptor,
                                   Question::socketDescriptor,
                                   Question::semaphoreDescriptor,
                                   Question::sharedMemoryDescriptor,
                                   Question::pipeDescriptor,
                                   Question::kqueueDescriptor,
                                   Question::kqueueEvents,
                                   Question::channelDescriptor,
                                   Question::resourceUsage,
                                   Question::codeSigningFlags,
                                   Question::codeSignature,
                                   Question::sandboxCheck,
                                   Question::containerPath,
                                   Question::applicationState,
                                   Question::memoryLimits,
                                   Question::arguments,
                                   Question::taskPort,
                                   Question::taskNamePort,
                                   Question::threadRegisters,
                                   Question::readMemory,
                                   Question::pages,
                                   Question::stackshot};
  std::string text =
      "[[process]]\nname = \"a\"\npid = 9\nsandbox = true\n"
      "[[process]]\nname = \"b\"\npid = 10\nsandbox = true\n";
  const Device plain = deviceOf(text);
  SimulatedMachine quiet(plain);
  const std::vector<Errno> usual = askAll(quiet, 9);
  std::vector<Errno> refused = usual;
  for (const Question question : kRefused) {
    const CallForm &row = kCallForms[indexOf(question)];
    text += "[[event]]\ndo = \"fail\"\nprocess = 9\nerror = \"EDEADLK\"\ncall = \"" +
            std::string(row.call) + "\"\n";
    if (!row.form.empty()) text += "form = \"" + std::string(row.form) + "\"\n";
    const bool answersNoNumber = question == Question::sandboxCheck;
    refused[indexOf(question)] = answersNoNumber ? darwin::DARWIN_EIO : darwin::DARWIN_EDEADLK;
  }
  SimulatedMachine machine(deviceOf(text));
  EXPECT_EQ(askAll(machine, 9), refused);
  EXPECT_EQ(askAll(machine, 10), usual);
  // Asked before anything else.
  std::vector<darwin::proc_fdinfo> open;
  EXPECT_EQ(SimulatedMachine(deviceOf(text)).descriptors(9, 10, open), darwin::DARWIN_EDEADLK);
  EXPECT_EQ(SimulatedMachine(deviceOf(text)).taskPort(9), darwin::DARWIN_EDEADLK);
}

TEST(SimulatedFaultsTest, AFaultComesBeforeAllOtherRefusals) {
  Device given = device({process(9)});
  given.caller = 501;
  SimulatedMachine machine(given);
  machine.happen(FailCall{"proc_pidinfo", "PROC_PIDTASKALLINFO", {}, darwin::DARWIN_ENOMEM});
  darwin::proc_taskallinfo task{};
  EXPECT_EQ(machine.taskAllInfo(9, task), darwin::DARWIN_ENOMEM);
  EXPECT_EQ(machine.taskAllInfo(77, task), darwin::DARWIN_ENOMEM);
}

TEST(SimulatedFaultsTest, AFaultEndsWhenItsTimeIsOver) {
  Device given = device({process(9)});
  given.events = {at(1s, FailCall{"sysctl", "vm.loadavg", {}, darwin::DARWIN_EIO}, 2s)};
  SimulatedMachine machine(given);
  darwin::loadavg averages{};
  EXPECT_EQ(machine.loadAverage(averages), kAnswered);
  machine.advance(1s);
  EXPECT_EQ(machine.loadAverage(averages), darwin::DARWIN_EIO);
  machine.advance(1999ms);
  EXPECT_EQ(machine.loadAverage(averages), darwin::DARWIN_EIO);
  machine.advance(1ms);
  EXPECT_EQ(machine.loadAverage(averages), kAnswered);
}

TEST(SimulatedFaultsTest, OneThatLastsIsNotEndedByOneThatDoesNot) {
  SimulatedMachine machine(device({process(9)}));
  const FailCall fault{"uname", "", {}, darwin::DARWIN_EIO};
  machine.happen(fault);
  machine.happen(fault, 1s);
  machine.advance(10s);
  host::KernelName name;
  EXPECT_EQ(machine.kernelName(name), darwin::DARWIN_EIO);
}

TEST(SimulatedFaultsTest, TheLastFaultCounts) {
  SimulatedMachine machine(device({process(9)}));
  machine.happen(FailCall{"uname", "", {}, darwin::DARWIN_EIO});
  machine.happen(FailCall{"uname", "", {}, darwin::DARWIN_EPERM}, 1s);
  host::KernelName name;
  EXPECT_EQ(machine.kernelName(name), darwin::DARWIN_EPERM);
  machine.advance(1s);
  EXPECT_EQ(machine.kernelName(name), darwin::DARWIN_EIO);
}

TEST(SimulatedFaultsTest, TheLastFaultCountsForOneProcessAndForAll) {
  SimulatedMachine machine(device({process(9), process(10)}));
  uint32_t flags = 0;
  machine.happen(FailCall{"csops", "", 9, darwin::DARWIN_EIO});
  machine.happen(FailCall{"csops", "", {}, darwin::DARWIN_EPERM});
  EXPECT_EQ(machine.codeSigningFlags(9, flags), darwin::DARWIN_EPERM);
  machine.happen(FailCall{"csops", "", 9, darwin::DARWIN_EIO});
  EXPECT_EQ(machine.codeSigningFlags(9, flags), darwin::DARWIN_EIO);
  EXPECT_EQ(machine.codeSigningFlags(10, flags), darwin::DARWIN_EPERM);
}

TEST(SimulatedFaultsTest, AnAnswerThatFailsLeavesWhatWasThere) {
  SimulatedMachine machine(device({process(9)}));
  machine.happen(FailCall{"proc_listpids", "", {}, darwin::DARWIN_EIO});
  std::vector<int32_t> pids = {4, 5};
  EXPECT_EQ(machine.processIDs(pids), darwin::DARWIN_EIO);
  EXPECT_THAT(pids, testing::ElementsAre(4, 5));
}

TEST(SimulatedCountsTest, EachQuestionCountsOnceForItsCall) {
  SimulatedMachine machine(device({process(9)}));
  askAll(machine, 9);
  askAll(machine, 77);
  EXPECT_EQ(machine.callsOf("uname"), 2U);
  EXPECT_EQ(machine.callsOf("proc_listpids"), 2U);
  EXPECT_EQ(machine.callsOf("proc_pidinfo"), 22U);
  EXPECT_EQ(machine.callsOf("proc_pidfdinfo"), 16U);
  EXPECT_EQ(machine.callsOf("proc_pid_rusage"), 2U);
  EXPECT_EQ(machine.callsOf("csops"), 4U);
  EXPECT_EQ(machine.callsOf("sandbox_check"), 2U);
  EXPECT_EQ(machine.callsOf("memorystatus_control"), 8U);
  EXPECT_EQ(machine.callsOf("memorystatus_get_level"), 2U);
  EXPECT_EQ(machine.callsOf("process_policy"), 2U);
  EXPECT_EQ(machine.callsOf("host_info"), 2U);
  EXPECT_EQ(machine.callsOf("host_statistics64"), 2U);
  EXPECT_EQ(machine.callsOf("host_processors"), 2U);
  EXPECT_EQ(machine.callsOf("processor_info"), 2U);
  EXPECT_EQ(machine.callsOf("sysctl"), 10U);
  EXPECT_EQ(machine.callsOf("ioctl"), 2U);
  EXPECT_EQ(machine.callsOf("ntstat"), 6U);
  EXPECT_EQ(machine.callsOf("MGCopyAnswerWithError"), 2U);
  EXPECT_EQ(machine.callsOf("IOPSCopyPowerSourcesInfo"), 2U);
  EXPECT_EQ(machine.callsOf("vm_pressure_monitor"), 2U);
  EXPECT_EQ(machine.callsOf("kqueue"), 2U);
  EXPECT_EQ(machine.callsOf("kill"), 2U);
  EXPECT_EQ(machine.callsOf("task_for_pid"), 2U);
  EXPECT_EQ(machine.callsOf("task_name_for_pid"), 2U);
  EXPECT_EQ(machine.callsOf("host_get_special_port"), 2U);
  EXPECT_EQ(machine.callsOf("act_get_state"), 2U);
  EXPECT_EQ(machine.callsOf("mach_vm_read_overwrite"), 2U);
  EXPECT_EQ(machine.callsOf("OSKextCopyLoadedKextInfo"), 2U);
  EXPECT_EQ(machine.callsOf("stackshot_capture_with_config"), 2U);
  EXPECT_EQ(machine.callsOf("no_such_call"), 0U);
}

}  // namespace
}  // namespace simulated_test
