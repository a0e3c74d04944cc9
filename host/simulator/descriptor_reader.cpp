#include "host/simulator/descriptor_reader.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <unordered_set>
#include <utility>
#include <variant>

#include "darwin/file_flags.h"
#include "host/darwin/proc_info.h"
#include "host/darwin/socket.h"
#include "host/simulator/error_names.h"

namespace host::simulator {

namespace {

constexpr size_t kLongestLabel = 255;
// The kernel's limits less the closing NUL: of an address in the file system (whose first two bytes
// are its length and family), of a kernel control.
constexpr size_t kLongestSocketPath = sizeof(darwin::un_sockinfo_address) - 2;
constexpr size_t kLongestControl = sizeof(darwin::kern_ctl_info::kcsi_name) - 1;
constexpr int64_t kLargestPermissions = 07777;
constexpr int64_t kMostCopiesOfDescriptor = 10000;
constexpr int64_t kLargestDescriptor = 9999;

// soi_state.
constexpr int32_t kConnecting = 0x4;
constexpr int32_t kDisconnecting = 0x8;
constexpr int32_t kCantSendMore = 0x10;
constexpr int32_t kCantReceiveMore = 0x20;
constexpr int32_t kDisconnected = 0x2000;

// The protocol that key sockets speak.
constexpr int32_t kKeyProtocol = 2;

constexpr Word kModes[] = {{"read", darwin::DARWIN_FREAD},
                           {"write", darwin::DARWIN_FWRITE},
                           {"nonblocking", darwin::DARWIN_O_NONBLOCK},
                           {"append", darwin::DARWIN_O_APPEND}};
constexpr Word kDescriptorStatuses[] = {{"shared", darwin::PROC_FP_SHARED},
                                        {"close-on-exec", darwin::PROC_FP_CLEXEC},
                                        {"guarded", darwin::PROC_FP_GUARDED},
                                        {"close-on-fork", darwin::PROC_FP_CLFORK}};
constexpr Word kGuards[] = {{"close", darwin::PROC_FI_GUARD_CLOSE},
                            {"dup", darwin::PROC_FI_GUARD_DUP},
                            {"socket", darwin::PROC_FI_GUARD_SOCKET_IPC},
                            {"fileport", darwin::PROC_FI_GUARD_FILEPORT}};

// Vnode types, and the file type that stands in the mode of each.
constexpr Word kFileKinds[] = {{"regular", 1}, {"directory", 2}, {"block", 3}, {"character", 4},
                               {"link", 5},    {"socket", 6},    {"fifo", 7}};
constexpr uint16_t kFileTypes[] = {0,       0100000, 0040000, 0060000,
                                   0020000, 0120000, 0140000, 0010000};

constexpr Word kSocketKinds[] = {{"stream", darwin::DARWIN_SOCK_STREAM},
                                 {"datagram", darwin::DARWIN_SOCK_DGRAM}};

// Which forms of addresses a socket takes.
constexpr uint32_t kFormBoth = darwin::INI_IPV4 | darwin::INI_IPV6;
constexpr Word kFamilies[] = {
    {"inet", darwin::INI_IPV4}, {"inet6", darwin::INI_IPV6}, {"both", kFormBoth}};
constexpr std::span<const Word> kRawFamilies = std::span(kFamilies).first<2>();

constexpr Word kTcpStates[] = {
    {"closed", darwin::TSI_S_CLOSED},           {"listen", darwin::TSI_S_LISTEN},
    {"syn-sent", darwin::TSI_S_SYN_SENT},       {"syn-received", darwin::TSI_S_SYN_RECEIVED},
    {"established", darwin::TSI_S_ESTABLISHED}, {"close-wait", darwin::TSI_S__CLOSE_WAIT},
    {"fin-wait-1", darwin::TSI_S_FIN_WAIT_1},   {"closing", darwin::TSI_S_CLOSING},
    {"last-ack", darwin::TSI_S_LAST_ACK},       {"fin-wait-2", darwin::TSI_S_FIN_WAIT_2},
    {"time-wait", darwin::TSI_S_TIME_WAIT}};

constexpr Word kStacks[] = {{"kernel", static_cast<int64_t>(NetworkStack::kernel)},
                            {"userland", static_cast<int64_t>(NetworkStack::userland)},
                            {"quic", static_cast<int64_t>(NetworkStack::quic)}};
constexpr std::span<const Word> kStreamStacks = std::span(kStacks).first<2>();

constexpr FigureKey<TrafficCounters> kTrafficFigures[] = {
    {"received", &TrafficCounters::receivedBytes, Unit::kSize},
    {"sent", &TrafficCounters::sentBytes, Unit::kSize},
    {"received-packets", &TrafficCounters::receivedPackets, Unit::kCount},
    {"sent-packets", &TrafficCounters::sentPackets, Unit::kCount},
};

// soi_state in each of these states.
constexpr int32_t kTcpSocketStates[] = {
    0,
    0,
    kConnecting,
    kConnecting,
    kSocketConnected,
    kSocketConnected | kCantReceiveMore,
    kSocketConnected | kDisconnecting | kCantSendMore,
    kSocketConnected | kDisconnecting | kCantSendMore | kCantReceiveMore,
    kSocketConnected | kDisconnecting | kCantSendMore | kCantReceiveMore,
    kSocketConnected | kDisconnecting | kCantSendMore,
    kDisconnected | kCantSendMore | kCantReceiveMore,
};

std::optional<uint16_t> parsePort(std::string_view text) {
  if (text == "*") return uint16_t{0};
  uint16_t port = 0;
  const char *end = text.data() + text.size();
  const auto [next, error] = std::from_chars(text.data(), end, port);
  return error == std::errc{} && next == end ? std::optional(port) : std::nullopt;
}

bool parseAddress(int family, const std::string &text, std::vector<uint8_t> &address) {
  std::array<uint8_t, 16> bytes{};
  if (inet_pton(family, text.c_str(), bytes.data()) != 1) return false;
  address.assign(bytes.begin(), bytes.begin() + (family == AF_INET ? 4 : 16));
  return true;
}

// An address alone has port 0.
std::optional<Endpoint> parseEndpoint(std::string_view text) {
  Endpoint endpoint;
  std::string address(text);
  if (text == "*" || parseAddress(AF_INET, address, endpoint.address) ||
      parseAddress(AF_INET6, address, endpoint.address)) {
    return endpoint;
  }
  const size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const std::optional<uint16_t> port = parsePort(text.substr(colon + 1));
  if (!port) return std::nullopt;
  endpoint.port = *port;
  address = text.substr(0, colon);
  if (address == "*" || parseAddress(AF_INET, address, endpoint.address)) return endpoint;
  if (address.size() < 2 || address.front() != '[' || address.back() != ']') return std::nullopt;
  address = address.substr(1, address.size() - 2);
  if (address == "*" || parseAddress(AF_INET6, address, endpoint.address)) return endpoint;
  return std::nullopt;
}

constexpr std::string_view kEndpointExpected =
    "an address and a port such as \"10.0.0.5:443\", \"[fe80::1]:443\" or \"*:443\"";
constexpr size_t kLongestEndpoint = 80;

// What its patterns stand for is not known yet: any digits will do to see which form an address
// has.
constexpr PatternValues kAnyDigits = {"1", 1, 1};

uint32_t formOf(const Endpoint &endpoint) {
  if (endpoint.address.empty()) return 0;
  return endpoint.address.size() == 4 ? darwin::INI_IPV4 : darwin::INI_IPV6;
}

// What a filter has to say of an event: a signed number, or any 64 bits.
int64_t readData(const Field &field) {
  if (field.as<std::string>() == nullptr) return field.number<int64_t>();
  return static_cast<int64_t>(field.address());
}

class DescriptorReader {
 public:
  DescriptorReader(const Field &field, bool isPartOfProcess)
      : reader_(field), takesPatterns_(isPartOfProcess) {
    entry_.place = field.place();
  }

  DescriptorEntry read() {
    const TypeRow &row = reader_.require("type", "the descriptor's type").rowIn(types());
    readCommon();
    if (row.socket.family != 0) startSocket(row.socket);
    if (row.read != nullptr) (this->*row.read)();
    reader_.finish();
    return std::move(entry_);
  }

 private:
  // What the kernel says of a socket of some type.
  struct SocketRow {
    int32_t kind = 0;
    int32_t family = 0;  // 0: it is no socket
    int32_t type = 0;
    int32_t protocol = 0;
  };
  static constexpr int32_t kAnyFamily = -1;  // one that a key says
  struct TypeRow {
    std::string_view text;
    void (DescriptorReader::*read)();  // null: there is nothing more to read
    SocketRow socket = {};
  };

  static std::span<const TypeRow> types() {
    using namespace darwin;
    using Reader = DescriptorReader;
    static constexpr TypeRow kRows[] = {
        {"file", &Reader::readFile},
        {"tcp",
         &Reader::readTcp,
         {SOCKINFO_TCP, DARWIN_AF_INET, DARWIN_SOCK_STREAM, DARWIN_IPPROTO_TCP}},
        {"udp",
         &Reader::readUdp,
         {SOCKINFO_IN, DARWIN_AF_INET, DARWIN_SOCK_DGRAM, DARWIN_IPPROTO_UDP}},
        {"raw", &Reader::readRaw, {SOCKINFO_IN, DARWIN_AF_INET, DARWIN_SOCK_RAW, 1}},
        {"unix", &Reader::readUnix, {SOCKINFO_UN, DARWIN_AF_UNIX, DARWIN_SOCK_STREAM, 0}},
        {"control",
         &Reader::readControl,
         {SOCKINFO_KERN_CTL, DARWIN_AF_SYSTEM, DARWIN_SOCK_DGRAM, SYSPROTO_CONTROL}},
        {"event",
         &Reader::readEvent,
         {SOCKINFO_KERN_EVENT, DARWIN_AF_SYSTEM, DARWIN_SOCK_RAW, SYSPROTO_EVENT}},
        {"route", nullptr, {SOCKINFO_GENERIC, DARWIN_AF_ROUTE, DARWIN_SOCK_RAW, 0}},
        {"key", nullptr, {SOCKINFO_GENERIC, DARWIN_PF_KEY, DARWIN_SOCK_RAW, kKeyProtocol}},
        {"network-driver",
         &Reader::readNetworkDriver,
         {SOCKINFO_NDRV, DARWIN_AF_NDRV, DARWIN_SOCK_RAW, 0}},
        {"vsock", &Reader::readVirtual, {SOCKINFO_VSOCK, DARWIN_AF_VSOCK, DARWIN_SOCK_STREAM, 0}},
        {"socket", &Reader::readPlainSocket, {SOCKINFO_GENERIC, kAnyFamily, DARWIN_SOCK_STREAM, 0}},
        {"semaphore", &Reader::readSemaphore},
        {"shared-memory", &Reader::readSharedMemory},
        {"pipe", &Reader::readPipe},
        {"kqueue", &Reader::readQueue},
        {"channel", &Reader::readChannel},
        {"file-events", &Reader::makeOpaque<PROX_FDTYPE_FSEVENTS>},
        {"network-policy", &Reader::makeOpaque<PROX_FDTYPE_NETPOLICY>},
        {"nexus", &Reader::makeOpaque<PROX_FDTYPE_NEXUS>},
        {"appletalk", &Reader::makeOpaque<PROX_FDTYPE_ATALK>},
    };
    return kRows;
  }

  // Of the object that the descriptor is.
  template <typename Object>
  void text(const Field &field, size_t most, std::string Object::*member) {
    readText(field, most, entry_.item, entry_.patterns,
             [member](Descriptor &descriptor) -> std::string & {
               return std::get<Object>(descriptor.object).*member;
             });
  }

  Socket &socket() { return std::get<Socket>(entry_.item.object); }

  template <uint32_t type>
  void makeOpaque() {
    entry_.item.object = Opaque{type};
  }

  void readCommon() {
    Descriptor &descriptor = entry_.item;
    if (const Field field = reader_.find("number")) {
      descriptor.number = static_cast<int32_t>(field.number(0, kLargestDescriptor));
      entry_.numberPlace = field.place();
    }
    if (takesPatterns_) reader_.number("copies", entry_.copies, 1, kMostCopiesOfDescriptor);
    if (const Field field = reader_.find("mode")) {
      descriptor.openFlags = field.severalOfOrNumber(kModes);
    }
    reader_.severalOf("status", descriptor.status, kDescriptorStatuses);
    reader_.severalOf("guard", descriptor.guard, kGuards);
    if (descriptor.guard != 0) descriptor.status |= darwin::PROC_FP_GUARDED;
    reader_.figure("offset", descriptor.offset, Unit::kSize);
    reader_.read("error", descriptor.refusal, readError);
  }

  void readPeer() {
    const auto label = [](const Field &field) {
      return Label{field.text(kLongestLabel), std::make_shared<const Place>(field.place())};
    };
    reader_.read("label", entry_.label, label);
    reader_.read("peer", entry_.peer, label);
    readAddresses();
  }

  // In place of those that are chosen.
  void readAddresses() {
    Descriptor &descriptor = entry_.item;
    const Field own = reader_.find("address");
    const Field peer = reader_.find("peer-address");
    if (peer && !entry_.peer.text.empty()) {
      peer.fail("found `peer-address` beside `peer`", "one of the two");
    }
    descriptor.isAddressed = own || peer;
    if (own) descriptor.handle = own.address();
    if (peer) descriptor.peer = peer.address();
  }

  void readFile() {
    File &file = entry_.item.object.emplace<File>();
    text(reader_.require("path", "the file's path"), kLongestPath, &File::path);
    reader_.oneOf("kind", file.type, kFileKinds);
    uint16_t permissions = 0644;
    reader_.number("permissions", permissions, 0, kLargestPermissions);
    file.mode = static_cast<uint16_t>(kFileTypes[file.type] | permissions);
    reader_.number("owner", file.user);
    reader_.number("group", file.group);
    reader_.figure("size", file.size, Unit::kSize);
    reader_.number("inode", file.inode);
    reader_.number("device", file.device);
    reader_.number("device-itself", file.deviceItself);
  }

  template <typename Object>
  Object &readNamed(Unit unit) {
    Object &object = entry_.item.object.emplace<Object>();
    text<Object>(reader_.require("name", "the object's name"), kLongestPath, &Object::name);
    reader_.number("permissions", object.mode, 0, kLargestPermissions);
    reader_.number("owner", object.user);
    reader_.number("group", object.group);
    reader_.figure("size", object.size, unit);
    return object;
  }

  void readSemaphore() { readNamed<NamedSemaphore>(Unit::kCount); }
  void readSharedMemory() {
    reader_.read("address", readNamed<SharedMemory>(Unit::kSize).address, &Field::address);
  }

  void readPipe() {
    PipeEnd &pipe = entry_.item.object.emplace<PipeEnd>();
    readPeer();
    reader_.figure("buffered", pipe.buffered, Unit::kSize);
    reader_.number("pipe-status", pipe.status);
  }

  void readQueue() {
    EventQueue &queue = entry_.item.object.emplace<EventQueue>();
    reader_.number("state", queue.state);
    for (const Field &element : reader_.elements("events")) {
      TableReader reader(element);
      QueuedEvent event;
      reader.read("ident", event.identifier, &Field::address);
      event.filter = reader.require("filter", "the number of the filter").number<int16_t>();
      reader.number("flags", event.flags);
      reader.number("fflags", event.filterFlags);
      reader.read("data", event.data, readData);
      reader.read("udata", event.userData, &Field::address);
      reader.number("status", event.status);
      reader.finish();
      queue.events.push_back(event);
    }
  }

  void readChannel() {
    Channel &channel = entry_.item.object.emplace<Channel>();
    if (const Field field = reader_.find("instance")) {
      const std::vector<uint8_t> bytes = field.bytes();
      if (bytes.size() != channel.instance.size()) {
        field.fail("found " + std::to_string(bytes.size()) + " bytes", "16 bytes");
      }
      std::copy(bytes.begin(), bytes.end(), channel.instance.begin());
    }
    reader_.number("port", channel.port);
    reader_.number("channel-type", channel.type);
    reader_.number("flags", channel.flags);
  }

  void startSocket(const SocketRow &row) {
    Socket &made = entry_.item.object.emplace<Socket>();
    made.kind = row.kind;
    made.family = row.family;
    made.type = row.type;
    made.protocol = row.protocol;
    readPeer();
  }

  void readTcp() {
    readInternet(kFamilies);
    readTcpState();
    readTraffic(kStreamStacks);
  }

  void readUdp() {
    readInternet(kFamilies);
    readTraffic(kStacks);
  }

  void readRaw() {
    readInternet(kRawFamilies);
    reader_.number("protocol", socket().protocol, 0, 255);
  }

  void readPlainSocket() {
    socket().family = 0;
    reader_.number("family", socket().family);
    reader_.number("socket-type", socket().type);
    reader_.number("protocol", socket().protocol);
  }

  void readControl() {
    text(reader_.require("control", "the name of the kernel control"), kLongestControl,
         &Socket::controlName);
    reader_.number("id", socket().controlID);
    reader_.number("unit", socket().controlUnit);
    reader_.oneOf("kind", socket().type, kSocketKinds);
    socket().state = kSocketConnected;
  }

  void readEvent() {
    reader_.number("vendor", socket().eventFilter[0]);
    reader_.number("class", socket().eventFilter[1]);
    reader_.number("subclass", socket().eventFilter[2]);
  }

  void readNetworkDriver() {
    text(reader_.find("interface"), kLongestInterface, &Socket::interface);
    reader_.number("interface-family", socket().interfaceFamily);
    reader_.number("unit", socket().interfaceUnit);
  }

  // One side of an Internet socket(). `form` is what the other sides of it have so far.
  void readSide(std::string_view key, Endpoint Socket::*side, uint32_t &form) {
    const Field field = reader_.find(key);
    if (!field) return;
    const std::string &text = field.text(kLongestEndpoint);
    const bool isPattern = takesPatterns_ && hasPattern(text);
    const std::optional<Endpoint> endpoint =
        parseEndpoint(isPattern ? filledIn(text, kAnyDigits) : text);
    if (!endpoint) field.fail(kEndpointExpected);
    const uint32_t ownForm = formOf(*endpoint);
    if (ownForm != 0 && form != 0 && ownForm != form) {
      field.fail("found " + quoted(text) + " beside an address of the other family",
                 "two addresses of one family");
    }
    form |= ownForm;
    socket().*side = *endpoint;
    if (!isPattern) return;
    entry_.patterns.push_back(
        {field.place(), text, kLongestEndpoint,
         [side, ownForm](Descriptor &descriptor, const Place &place, const std::string &filled) {
           std::optional<Endpoint> now = parseEndpoint(filled);
           if (!now || formOf(*now) != ownForm) {
             failAt(place, "found " + quoted(filled) + " once its patterns are filled in",
                    kEndpointExpected);
           }
           std::get<Socket>(descriptor.object).*side = std::move(*now);
         }});
  }

  void readInternet(std::span<const Word> families) {
    uint32_t ofAddresses = 0;
    readSide("local", &Socket::local, ofAddresses);
    readSide("remote", &Socket::remote, ofAddresses);
    uint32_t form = ofAddresses != 0 ? ofAddresses : uint32_t{darwin::INI_IPV4};
    if (const Field field = reader_.find("family")) {
      form = static_cast<uint32_t>(field.oneOf(families));
      if ((ofAddresses & ~form) != 0) {
        field.fail(ofAddresses == darwin::INI_IPV4 ? "the family of its IPv4 addresses"
                                                   : "the family of its IPv6 addresses");
      }
    }
    socket().isIPv4 = (form & darwin::INI_IPV4) != 0;
    socket().isIPv6 = (form & darwin::INI_IPV6) != 0;
    socket().family = socket().isIPv6 ? darwin::DARWIN_AF_INET6 : darwin::DARWIN_AF_INET;
    if (reader_.find("remote")) socket().state = kSocketConnected;
  }

  void readTcpState() {
    socket().tcpState =
        socket().state == kSocketConnected ? darwin::TSI_S_ESTABLISHED : darwin::TSI_S_LISTEN;
    reader_.oneOf("state", socket().tcpState, kTcpStates);
    socket().state = kTcpSocketStates[socket().tcpState];
  }

  void readTraffic(std::span<const Word> stacks) {
    TrafficCounters traffic;
    reader_.figures(kTrafficFigures, traffic);
    bool isCounted = true;
    reader_.flag("counted", isCounted);
    if (isCounted) socket().traffic = traffic;
    const Field stack = reader_.find("stack");
    if (!stack) return;
    socket().stack = static_cast<NetworkStack>(stack.oneOf(stacks));
    if (!isCounted) {
      stack.fail("says who counts a socket that is not counted",
                 "no such key, or `counted = true`");
    }
  }

  void readUnix() {
    text(reader_.find("path"), kLongestSocketPath, &Socket::path);
    text(reader_.find("peer-path"), kLongestSocketPath, &Socket::peerPath);
    reader_.oneOf("kind", socket().type, kSocketKinds);
    const bool isConnected = !socket().peerPath.empty() || entry_.item.peer != 0;
    if (isConnected) socket().state = kSocketConnected;
  }

  void readVirtual() {
    auto part = socket().virtualAddress.begin();
    for (const std::string_view key : {"local", "remote"}) {
      if (const Field field = reader_.find(key)) {
        const std::vector<Field> parts = field.elementsOf(2, 2, "an array of two numbers");
        part[0] = parts[0].number<uint32_t>();
        part[1] = parts[1].number<uint32_t>();
      }
      part += 2;
    }
    if (reader_.find("remote")) socket().state = kSocketConnected;
    reader_.oneOf("kind", socket().type, kSocketKinds);
  }

  TableReader reader_;
  bool takesPatterns_;
  DescriptorEntry entry_;
};

}  // namespace

DescriptorEntry readDescriptor(const Field &field, bool isPartOfProcess) {
  return DescriptorReader(field, isPartOfProcess).read();
}

void makeDescriptors(Items<DescriptorEntry> &descriptors) {
  std::unordered_set<int32_t> taken;
  for (const DescriptorEntry &entry : descriptors.entries) {
    if (entry.item.number < 0) continue;
    for (int32_t i = 0; i < entry.copies; i++) {
      const int32_t number = entry.item.number + i;
      if (taken.insert(number).second) continue;
      failAt(entry.numberPlace,
             "another descriptor has the number " + std::to_string(number) + " already",
             "one of its own");
    }
  }
  int32_t lowest = 0;
  for (size_t e = 0; e < descriptors.entries.size(); e++) {
    const DescriptorEntry &entry = descriptors.entries[e];
    for (int32_t i = 0; i < entry.copies; i++) {
      Descriptor &made = descriptors.items.emplace_back(entry.item);
      descriptors.entryOf.push_back(e);
      if (made.number >= 0) {
        made.number += i;
      } else {
        while (taken.contains(lowest)) lowest++;
        made.number = lowest++;
      }
    }
  }
}

size_t textBytes(const Descriptor &descriptor) {
  if (const File *file = std::get_if<File>(&descriptor.object)) return textBytes(file->path);
  if (const Socket *socket = std::get_if<Socket>(&descriptor.object)) {
    return textBytes(socket->path) + textBytes(socket->peerPath) + textBytes(socket->controlName) +
           textBytes(socket->interface);
  }
  if (const auto *semaphore = std::get_if<NamedSemaphore>(&descriptor.object)) {
    return textBytes(semaphore->name);
  }
  if (const auto *memory = std::get_if<SharedMemory>(&descriptor.object)) {
    return textBytes(memory->name);
  }
  if (const auto *queue = std::get_if<EventQueue>(&descriptor.object)) {
    return queue->events.size() * sizeof(QueuedEvent);
  }
  return 0;
}

}  // namespace host::simulator
