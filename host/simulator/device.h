// What a simulated device holds and what happens on it: plain data, made by a device file
// (device_file.h) or built up by a test. simulated_machine.h brings it to life. Numbers are
// Darwin's own unless a comment says otherwise; sizes are bytes, shares of a processor are tenths
// of a percent. Times count from the start of the device's clock. A process's figures, and those of
// what it holds, count from its own start where that is later, and stand still while it is stopped.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "host/machine/power.h"
#include "host/simulator/figure.h"

namespace host::simulator {

// A user.
inline constexpr uint32_t kRoot = 0;

struct Kernel {
  std::string version =
      "Darwin Kernel Version 18.7.0: Mon Aug 19 22:24:08 PDT 2019; "
      "root:xnu-4903.272.1~1/RELEASE_ARM64_T8020";
  std::string release = "18.7.0";
  std::string node = "device";
  std::string hardware = "iPhone11,2";
  uint64_t pageSize = 16384;
  // Nanoseconds per mach absolute time unit, as numerator and denominator.
  uint32_t timebaseNumerator = 125;
  uint32_t timebaseDenominator = 3;
  // Entry points that the release lacks, as they are looked up by name.
  std::vector<std::string> missing;
  // Whether the kernel's own task is special port 4 of the host, as changed kernels have it.
  bool givesTask = false;
  uint64_t firstSource = 1;  // reference of the first that the network statistics tell a client of
  std::optional<std::vector<std::string>> extensions;  // identifiers; nothing: no list of them
};

struct DeviceClock {
  // A stepped clock stands still, and goes on by `step` with each sample after the first.
  bool isStepped = false;
  Nanoseconds step{1'000'000'000};
  // Seconds since the epoch; nothing is the time at which the program starts.
  std::optional<int64_t> start;
  Nanoseconds startFraction{0};  // of the next second, beside `start`
  // In the form of the variable TZ; empty is the zone of the host.
  std::string zone;
  // How long the device had been up at the start.
  Nanoseconds up{86'400'000'000'000};
};

// Ticks, a hundred a second.
struct Processor {
  Figure user;
  Figure system;
  Figure idle;
  Figure nice;
};

// In pages.
struct Memory {
  Figure free;  // the speculative ones too, as the kernel counts them
  Figure active;
  Figure inactive;
  Figure wired;
  Figure purgeable;
  Figure speculative;
  Figure throttled;
  Figure external;
  Figure internal;
  Figure compressor;
  Figure uncompressed;
  Figure compressions;
  Figure decompressions;
  Figure pageIns;
  Figure pageOuts;
  Figure swapIns;
  Figure swapOuts;
  Figure faults;
  Figure copyOnWriteFaults;
  Figure zeroFills;
  Figure reactivations;
  Figure purges;
  Figure lookups;
  Figure hits;
};

struct Swap {
  uint64_t total = 0;
  Figure used;
  bool isEncrypted = false;
};

struct Hardware {
  int32_t logicalProcessors = 0;        // in use; 0 is as many as `processors` has
  int32_t logicalProcessorsMost = 0;    // 0 is the same
  int32_t physicalProcessors = 0;       // 0 is the same
  int32_t physicalProcessorsMost = 0;   // 0 is the same
  int32_t processorType = 0x0100000C;   // ARM64
  int32_t processorSubtype = 2;         // ARM64E
  uint64_t memory = uint64_t{4} << 30;  // bytes
  std::vector<Processor> processors;
};

struct Interface {
  std::string name;
  uint8_t type = 6;  // 6 Ethernet and Wi-Fi, 23 point-to-point, 24 loopback, 255 cellular
  uint32_t flags = 0x8863;
  uint32_t mtu = 1500;
  uint64_t speed = 0;  // bits per second
  Figure receivedPackets;
  Figure receivedBytes;
  Figure sentPackets;
  Figure sentBytes;
};

struct WiFi {
  std::string interface = "en0";
  std::optional<std::string> name;  // SSID, at most 32 bytes; nothing when not connected
  uint32_t channel = 0;
  uint32_t channelFlags = 0;
  int32_t signal = 0;             // RSSI, dBm
  std::vector<int32_t> perRadio;  // at most 4; empty is one radio with `signal`
};

using host::PowerSource;

struct Power {
  std::vector<PowerSource> sources;
  double secondsRemaining = -1;  // -1 unknown, -2 unlimited
  // Names of the assertions that each process holds. Nothing is a service that gives none.
  std::optional<std::map<int32_t, std::vector<std::string>>> assertions;
};

// An answer that the service refuses, with this number.
struct Refusal {
  int32_t error = 0;
};
using GestaltValue = std::variant<std::string, int64_t, bool, Refusal>;

// What a thread stopped with. A 32-bit process has the lower half of each.
struct Registers {
  uint64_t programCounter = 0;
  uint64_t stackPointer = 0;
  uint64_t framePointer = 0;  // of a 64-bit process only: the other has it among the general ones
  uint64_t link = 0;
  uint32_t status = 0;
  std::vector<uint64_t> general;  // x0 to x28, or r0 to r12; those left out are 0
};

struct Thread {
  Figure userTime;    // nanoseconds
  Figure systemTime;  // nanoseconds
  Figure share;       // of a processor: tenths of a percent, at most 1000
  int32_t state = darwin::TH_STATE_WAITING;
  int32_t flags = 0;
  int32_t policy = darwin::POLICY_TIMESHARE;
  int32_t sleepTime = 0;  // seconds
  int32_t priority = 31;
  int32_t currentPriority = 31;
  int32_t largestPriority = 63;
  std::string name;
  // As flavour 6 names the thread (a kernel's threads all have 0), and its ID. 0 is one that the
  // device chooses.
  uint64_t handle = 0;
  uint64_t id = 0;
  Registers registers;
  // What a stackshot shows.
  uint64_t waitEvent = 0;
  uint64_t continuation = 0;
  std::vector<uint64_t> kernelStack;  // addresses, the innermost first
  std::vector<uint64_t> userStack;
};

struct File {
  std::string path;
  int32_t type = 1;  // VREG; 2 directory, 3 block, 4 character, 5 link, 6 socket, 7 FIFO
  uint16_t mode = 0100644;
  uint32_t user = 0;
  uint32_t group = 0;
  Figure size;
  uint64_t inode = 0;
  uint32_t device = 0;        // that the file is on
  uint32_t deviceItself = 0;  // of block and character devices
};

// An Internet address: 4 or 16 bytes as they go over the wire, and a port.
struct Endpoint {
  std::vector<uint8_t> address;  // empty is "any"
  uint16_t port = 0;
};

struct TrafficCounters {
  Figure receivedPackets;
  Figure receivedBytes;
  Figure sentPackets;
  Figure sentBytes;
};

// What counts the traffic of a socket: the kernel's protocols, or those that its process has in
// itself.
enum class NetworkStack : uint8_t { kernel, userland, quic };

struct Socket {
  int32_t kind = 0;    // SOCKINFO_*
  int32_t family = 0;  // DARWIN_AF_*
  int32_t type = 1;    // 1 stream, 2 datagram, 3 raw
  int32_t protocol = 0;
  int32_t state = 0;  // SOI_S_*
  // Of kinds IN and TCP.
  bool isIPv6 = false;
  bool isIPv4 = true;
  Endpoint local;
  Endpoint remote;
  int32_t tcpState = 0;
  std::optional<TrafficCounters> traffic;     // nothing: the network statistics don't list it
  NetworkStack stack = NetworkStack::kernel;  // QUIC of datagrams only
  // Of kind UN.
  std::string path;
  std::string peerPath;
  // Of kind KERN_CTL.
  std::string controlName;
  uint32_t controlID = 0;
  uint32_t controlUnit = 0;
  // Of kind KERN_EVENT: vendor, class, subclass.
  std::array<uint32_t, 3> eventFilter{};
  // Of kind NDRV.
  std::string interface;
  uint32_t interfaceFamily = 0;
  uint32_t interfaceUnit = 0;
  // Of kind VSOCK: local and remote context IDs and ports.
  std::array<uint32_t, 4> virtualAddress{};
};

struct NamedObject {  // semaphore, shared memory
  std::string name;
  uint16_t mode = 0600;
  uint32_t user = 0;
  uint32_t group = 0;
  Figure size;           // of a semaphore: its count of users
  uint64_t address = 0;  // of shared memory
};

struct PipeEnd {
  Figure buffered;  // bytes
  int32_t status = 0;
};

struct QueuedEvent {
  uint64_t identifier = 0;
  int16_t filter = 0;
  uint16_t flags = 1;
  uint32_t filterFlags = 0;
  int64_t data = 0;
  uint64_t userData = 0;
  int32_t status = 0;
};

struct EventQueue {
  uint32_t state = 0x10;  // 64-bit
  std::vector<QueuedEvent> events;
};

struct Channel {
  std::array<uint8_t, 16> instance{};
  uint32_t port = 0;
  uint32_t type = 0;
  uint32_t flags = 0;
};

// A kind of descriptor of which nothing more is known (file-system events, network policy, nexus,
// AppleTalk).
struct Opaque {
  uint32_t type = darwin::PROX_FDTYPE_FSEVENTS;
};

struct NamedSemaphore : NamedObject {};
struct SharedMemory : NamedObject {};

struct Descriptor {
  int32_t number = -1;  // -1: the lowest free one
  uint32_t openFlags = 3;
  uint32_t status = 0;
  uint32_t guard = 0;
  Figure offset;
  std::optional<int32_t> refusal;  // with which the kernel refuses to say more of it
  // What it is known by to descriptors that have this as their peer; 0 is one that the device
  // chooses. Sockets, pipes.
  uint64_t handle = 0;
  uint64_t peer = 0;
  bool isAddressed = false;  // both are what they are, whoever has them
  // What the network statistics tell a socket with traffic by; the device numbers them. Forks share
  // it.
  uint64_t sourceKey = 0;
  std::variant<File, Socket, NamedSemaphore, SharedMemory, PipeEnd, EventQueue, Channel, Opaque>
      object;
};

// Contents at a place in a region.
struct MemoryPiece {
  uint64_t offset = 0;
  std::vector<uint8_t> bytes;
};

struct Region {
  uint64_t address = 0;
  uint64_t size = 0;
  uint32_t protection = 3;  // 1 read, 2 write, 4 execute
  uint32_t largestProtection = 7;
  uint32_t inheritance = 1;
  uint32_t flags = 0;  // 1 submap, 2 shared
  uint64_t offset = 0;
  uint32_t behaviour = 0;
  uint32_t tag = 0;
  uint32_t shareMode = 2;  // SM_PRIVATE
  uint32_t references = 1;
  uint32_t depth = 0;
  uint32_t object = 0;
  uint32_t wiredCount = 0;
  uint32_t shadowDepth = 0;
  // In pages.
  Figure resident;
  Figure privateResident;
  Figure sharedResident;
  Figure sharedNowPrivate;
  Figure swappedOut;
  Figure dirty;
  std::string path;
  std::vector<uint8_t> contents;    // from the start, repeated to the end; empty is zeroes
  std::vector<MemoryPiece> pieces;  // in their place, by ascending offset and apart, in zeroes
  bool isReadable = true;           // a copy of its contents is refused otherwise
};

struct WorkQueue {
  uint32_t threads = 0;
  uint32_t running = 0;
  uint32_t blocked = 0;
  uint32_t state = 0;
};

struct Jetsam {
  int32_t band = 0;
  int32_t limit = -1;  // MB, while it is active: the one that the list has
  uint32_t state = 0;
  uint64_t userData = 0;
  int32_t inactiveLimit = -1;  // MB, while it is not
  uint32_t limitAttributes = 0;
  uint32_t inactiveLimitAttributes = 0;
  int64_t place = 0;  // in its band, ascending; those with the same as they started
};

// What proc_pid_rusage says beyond times and sizes.
struct ResourceUsage {
  Figure diskRead;
  Figure diskWritten;
  Figure idleWakeups;
  Figure interruptWakeups;
  Figure logicalWrites;
  Figure instructions;
  Figure cycles;
  Figure billedEnergy;
  Figure servicedEnergy;
  Figure billedSystemTime;    // nanoseconds
  Figure servicedSystemTime;  // nanoseconds
};

struct Process {
  int32_t pid = -1;  // -1: the next free one
  int32_t parent = 1;
  std::optional<int32_t> group;  // nothing: its own
  std::string name;              // the kernel keeps 15 bytes of it, and 31 of the long form
  std::string longName;          // empty is `name`
  std::string path;              // of the executable
  std::vector<std::string> arguments;
  std::vector<std::string> environment;
  uint32_t user = 0;
  uint32_t realUser = 0;
  uint32_t savedUser = 0;
  uint32_t groupID = 0;
  uint32_t realGroupID = 0;
  uint32_t savedGroupID = 0;
  bool is64Bit = true;
  uint32_t flags = 0;              // pbi_flags without the 64-bit one
  uint32_t status = darwin::SRUN;  // SZOMB: ended, and not yet waited for
  uint32_t exitStatus = 0;
  uint32_t terminal = 0xFFFFFFFF;
  uint32_t terminalGroup = 0;
  std::vector<int32_t> donors;  // PIDs of those that lend it their importance
  uint32_t jobs = 0;
  int32_t nice = 0;
  // Before the start of the device's clock, or of its own start if that is later.
  Nanoseconds age{0};

  Figure virtualSize;
  Figure residentSize;
  Figure footprint;
  Figure wiredSize;
  Figure userTime;    // nanoseconds
  Figure systemTime;  // nanoseconds
  Figure faults;
  Figure pageIns;
  Figure copyOnWriteFaults;
  Figure messagesSent;
  Figure messagesReceived;
  Figure machCalls;
  Figure unixCalls;
  Figure contextSwitches;
  int32_t priority = 31;
  int32_t policy = darwin::POLICY_TIMESHARE;

  std::vector<Thread> threads;
  std::vector<Descriptor> descriptors;
  std::vector<Region> regions;             // by ascending address, apart from one another
  std::optional<TrafficCounters> traffic;  // beside that of its sockets; nothing: it has none
  uint64_t sourceKey = 0;                  // of that, as a descriptor has one
  std::optional<WorkQueue> workQueue;
  std::optional<ResourceUsage> usage = ResourceUsage{};  // nothing: refused with DARWIN_ENOTSUP
  // Resource and jetsam; nothing: both have its PID.
  std::optional<std::array<uint64_t, 2>> coalitions;
  std::optional<Jetsam> jetsam;  // nothing: not in the list
  int32_t sandboxed = 0;         // 1, 0, or -1 where that can't be said
  std::string container;         // empty: none
  uint32_t codeSigningFlags = 0;
  std::vector<uint8_t> codeSignature;
  std::optional<int32_t> applicationState;  // nothing: not supported
};

// What happens.
struct StartProcess {
  Process process;
};
struct ExitProcess {
  int32_t pid = 0;
  uint32_t status = 0;
  bool staysZombie = false;
};
struct ForkProcess {
  int32_t pid = 0;
  int32_t child = -1;  // -1: the next free one
};
struct ExecProcess {
  int32_t pid = 0;
  std::string name;
  std::string path;
  std::vector<std::string> arguments;
};
struct StopProcess {
  int32_t pid = 0;
};
struct ContinueProcess {
  int32_t pid = 0;
};
// Sets the fields that have a value and leaves the others. A figure takes the new value and keeps
// its growth and swing.
struct ChangeProcess {
  int32_t pid = 0;
  std::optional<uint64_t> virtualSize;
  std::optional<uint64_t> residentSize;
  std::optional<uint64_t> diskRead;
  std::optional<uint64_t> diskWritten;
  std::optional<int32_t> priority;
  std::optional<int32_t> band;
  std::optional<int32_t> limit;
  std::optional<uint32_t> jetsamState;
  std::optional<int32_t> sandboxed;
  std::optional<uint32_t> codeSigningFlags;
  std::optional<int32_t> applicationState;
  std::optional<std::vector<Thread>> threads;
};
struct OpenDescriptor {
  int32_t pid = 0;
  Descriptor descriptor;
};
struct CloseDescriptor {
  int32_t pid = 0;
  int32_t number = 0;
};
struct RaisePressure {
  uint32_t wantedPages = 0;
  uint32_t reclaimedPages = 0;
  std::optional<uint32_t> level;  // percent of memory still available, from then on
};
// Sets the fields that have a value and leaves the others.
struct ChangePower {
  size_t source = 0;
  std::optional<int32_t> capacity;
  std::optional<std::string> state;
  std::optional<bool> isCharging;
  std::optional<double> secondsRemaining;
};
// A named call fails. Calls have Darwin's names: "proc_pidinfo", "host_statistics64", "sysctl".
struct FailCall {
  std::string call;
  // Only this form of it: a flavour's name ("PROC_PIDTASKALLINFO"), a variable's ("vm.loadavg").
  // Empty: every form.
  std::string form;
  std::optional<int32_t> pid;
  int32_t error = darwin::DARWIN_EIO;
};

using Action = std::variant<StartProcess, ExitProcess, ForkProcess, ExecProcess, StopProcess,
                            ContinueProcess, ChangeProcess, OpenDescriptor, CloseDescriptor,
                            RaisePressure, ChangePower, FailCall>;

struct Event {
  Nanoseconds at{0};
  Action action;
  // After this long the action is undone: a process that it started ends, one that it stopped goes
  // on, a descriptor that it opened is closed, a call that it made fail works again. Nothing:
  // never. Other actions can't be undone.
  std::optional<Nanoseconds> lasts;
  std::optional<Nanoseconds> every;  // comes again after this long, for ever
};

struct Device {
  std::string name;
  Kernel kernel;
  DeviceClock clock;
  // Whether what comes without being asked for is told: network statistics to their client, memory
  // pressure to who waits for it.
  bool tellsInBackground = true;
  bool countsSockets = true;    // false: none is counted on its own, whatever it says
  bool tellsOfZombies = false;  // as Linux does: what is asked of a task is answered of them, too
  uint32_t caller = 0;          // effective user of the program: 0 is root
  Hardware hardware;
  Memory memory;
  std::optional<Swap> swap;            // nothing: the kernel has none, all figures are 0
  std::array<Figure, 3> loadAverages;  // millionths
  std::optional<Figure> memoryLevel;   // percent still available; nothing: not supported
  std::vector<Interface> interfaces;
  std::optional<WiFi> wifi;
  std::optional<Power> power;                                  // nothing: no such service
  std::optional<std::map<std::string, GestaltValue>> gestalt;  // nothing: no such library
  std::vector<Process> processes;                              // in the order in which they started
  std::vector<Event> events;
};

}  // namespace host::simulator
