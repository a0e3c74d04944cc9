#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "kcdata/parser.h"
#include "tests/unit/kcdata_bytes.h"
#include "tests/unit/sampled_machine.h"
#include "text/safe_text.h"

namespace {

using namespace sondex;
using kcdata_test::Bytes;
using kcdata_test::Exact;
using kcdata_test::opened;
using sampled::outputOf;
using testing::EndsWith;
using testing::StartsWith;

std::string parsed(const Bytes &bytes, uint32_t flags = 0, uint32_t threadsOnly = 0) {
  const Exact buffer(bytes);
  return outputOf([&] { parse_stackshot(buffer.begin(), buffer.size(), flags, threadsOnly); });
}

// What is printed of the first item of a buffer, behind its name.
std::string payloadText(const Bytes &bytes, uint32_t flags = 0) {
  const Exact buffer(bytes);
  return outputOf([&] { kcdata_payload_to_text(buffer.begin(), buffer.end(), flags); });
}

struct Printed {
  std::string text;
  size_t used;
  bool operator==(const Printed &) const = default;
};

void PrintTo(const Printed &printed, std::ostream *out) {
  *out << '"' << printed.text << "\" and " << printed.used;
}

Printed element(uint32_t type, const Bytes &bytes) {
  const Exact buffer(bytes);
  Printed printed;
  printed.text = outputOf([&] { printed.used = dumpElem({buffer.begin(), buffer.size()}, type); });
  return printed;
}

Bytes taskPayload(int32_t pid, std::string_view name, uint64_t size) {
  return Bytes().upTo(40).u64(size).upTo(84).word(pid).text(name).upTo(120);
}

Bytes threadPayload(uint64_t id, uint64_t continuation) {
  return Bytes().u64(id).u64(0xEEEE).u64(continuation).upTo(128);
}

Bytes groupPayload(uint64_t id, std::string_view name, uint64_t flags) {
  return Bytes().u64(id).text(name).upTo(24).u64(flags).text("more of a name").upTo(48);
}

// Elements

TEST(KcdataElement, LoadedImage) {
  for (const uint32_t type : {49u, 2332u, 2350u}) {
    const Bytes image = Bytes().u64(0x1A2B3C4D5000).text("0123456789abcdef");
    EXPECT_EQ(element(type, image), (Printed{"\t\t(UUID not yet)@0x1a2b3c4d5000\n", 24})) << type;
  }
}

TEST(KcdataElement, Task) {
  EXPECT_EQ(element(2309, taskPayload(321, "backboardd", 5000000000)),
            (Printed{"\tCOMM: backboardd\tPID: 321, Task Size: 5000000000\n", 8}));
  EXPECT_EQ(element(2309, taskPayload(-1, std::string(32, 'n'), ~uint64_t{0})).text,
            "\tCOMM: " + std::string(32, 'n') + "\tPID: -1, Task Size: -1\n");
}

TEST(KcdataElement, ThreadName) {
  EXPECT_EQ(element(2313, Bytes().text("worker").upTo(64)), (Printed{"\tworker", 8}));
  EXPECT_EQ(element(2313, Bytes().upTo(64)), (Printed{"\t", 8}));
}

TEST(KcdataElement, Texts) {
  for (const uint32_t type : {2318u, 2319u}) {
    EXPECT_EQ(element(type, Bytes().text("debug=0x14e").upTo(16)), (Printed{"debug=0x14e\n", 11}));
    // The bytes may end before the text does.
    EXPECT_EQ(element(type, Bytes().text("serial")), (Printed{"serial\n", 6}));
    EXPECT_EQ(element(type, {}), (Printed{"\n", 0}));
  }
}

TEST(KcdataElement, LongTextIsWhole) {
  std::string text;
  while (text.size() < 5000) text += "-v x=\xC3\xA9 ";
  EXPECT_EQ(element(2318, Bytes().text(text)), (Printed{text + "\n", text.size()}));
}

// However it is read, a character is read whole.
TEST(KcdataElement, VeryLongTextIsWhole) {
  std::string text = "x";
  while (text.size() < 1 << 20) text += "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  for (const char *before : {"", "1", "12", "123"}) {
    const std::string moved = before + text;
    // Not compared as arguments: a failure would print them.
    const Printed printed = element(2319, Bytes().text(moved));
    EXPECT_TRUE(printed.text == moved + "\n");
    EXPECT_EQ(printed.used, moved.size());
  }
}

TEST(KcdataElement, ReturnAddress) {
  for (const uint32_t type : {2324u, 2326u}) {
    EXPECT_EQ(element(type, Bytes().u64(0xFFFFFFF00723ABCD)),
              (Printed{"\t\t0xfffffff00723abcd\n", 8}));
  }
}

TEST(KcdataElement, Times) {
  EXPECT_EQ(element(2329, Bytes().u64(1000000000000).u64(2).u64(3).u64(4)),
            (Printed{"User: 1000000000000 System: 2 Runnable: 3\n", 32}));
}

TEST(KcdataElement, ThreadGroup) {
  EXPECT_EQ(element(2334, groupPayload(0x1F, "com.apple.x", 0x8000000000000001)),
            (Printed{"ID: 0x1f, Name: com.apple.x, Flags: 0x8000000000000001\n", 48}));
  // A name of full length ends before the flags.
  EXPECT_EQ(element(2334, groupPayload(1, "0123456789abcdef", 0x41)).text,
            "ID: 0x1, Name: 0123456789abcdef, Flags: 0x41\n");
}

TEST(KcdataElement, Counters) {
  EXPECT_EQ(element(2339, Bytes().u64(11).u64(22).u64(33).u64(44)),
            (Printed{"I: 11 C:22 PI:33 PC:44", 32}));
}

TEST(KcdataElement, CodeSigning) {
  EXPECT_EQ(element(2374, Bytes().u64(0x122000005).word(int32_t{7}).upTo(16)),
            (Printed{"\tCode Signing info: Flags: 0x122000005\tTrust Level: 7\n", 8}));
  EXPECT_EQ(element(2374, Bytes().u64(0).word(int32_t{-1})).text,
            "\tCode Signing info: Flags: 0x0\tTrust Level: -1\n");
}

TEST(KcdataElement, OfAnyOtherType) {
  for (uint32_t type = 0; type < 2500; type++) {
    switch (type) {
      case 49:
      case 2309:
      case 2313:
      case 2318:
      case 2319:
      case 2324:
      case 2326:
      case 2329:
      case 2332:
      case 2334:
      case 2339:
      case 2350:
      case 2374:
        continue;
      default:
        EXPECT_EQ(element(type, Bytes().upTo(64)), (Printed{"NOT YET!", 0})) << type;
    }
  }
}

TEST(KcdataElement, WordsThatAreMissingAreZero) {
  EXPECT_EQ(element(49, {}), (Printed{"\t\t(UUID not yet)@0x0\n", 24}));
  EXPECT_EQ(element(2309, Bytes().upTo(40).u64(7)).text, "\tCOMM: \tPID: 0, Task Size: 7\n");
  EXPECT_EQ(element(2309, Bytes().upTo(84).word(int32_t{9}).text("ab")).text,
            "\tCOMM: ab\tPID: 9, Task Size: 0\n");
  EXPECT_EQ(element(2313, {}), (Printed{"\t", 8}));
  EXPECT_EQ(element(2324, Bytes().word(uint32_t{0x1234})), (Printed{"\t\t0x1234\n", 8}));
  EXPECT_EQ(element(2329, Bytes().u64(1).u64(2)), (Printed{"User: 1 System: 2 Runnable: 0\n", 32}));
  EXPECT_EQ(element(2334, Bytes().u64(5).text("old").upTo(24)),
            (Printed{"ID: 0x5, Name: old, Flags: 0x0\n", 48}));
  EXPECT_EQ(element(2339, Bytes().u64(1).u64(2)), (Printed{"I: 1 C:2 PI:0 PC:0", 32}));
  EXPECT_EQ(element(2374, Bytes().u64(1)),
            (Printed{"\tCode Signing info: Flags: 0x1\tTrust Level: 0\n", 8}));
}

TEST(KcdataElement, NamesCannotDriveTheTerminal) {
  EXPECT_EQ(element(2309, taskPayload(1, "a\x1B[2Jb\n", 0)).text,
            "\tCOMM: a?[2Jb?\tPID: 1, Task Size: 0\n");
  EXPECT_EQ(element(2313, Bytes().text("\x1B]0;x\x07").upTo(16)).text, "\t?]0;x?");
  EXPECT_EQ(element(2318, Bytes().text("a\tb\xFF")), (Printed{"a?b?\n", 4}));
  EXPECT_EQ(element(2334, groupPayload(0, "\x7F\x80", 0)).text, "ID: 0x0, Name: ??, Flags: 0x0\n");
}

// Payloads

TEST(KcdataPayload, ArrayOfAddresses) {
  const Bytes addresses = Bytes().u64(0x10).u64(0x20).u64(0x30);
  const std::string text = "of 3 Elements of type _USER_STACKLR64 \n\t\t0x10\n\t\t0x20\n\t\t0x30\n";
  EXPECT_EQ(payloadText(Bytes().array(2326, 3, addresses)), text);
  EXPECT_EQ(payloadText(Bytes().array(2326, 3, addresses, 17)), text);
  // Filler behind the last element.
  EXPECT_EQ(payloadText(Bytes().array(2326, 3, Bytes(addresses).upTo(32), 0x28)), text);
  EXPECT_EQ(payloadText(Bytes().array(2326, 3, addresses), 2),
            "of 3 Elements of type _USER_STACKLR64 (0x916)\n\t\t0x10\n\t\t0x20\n\t\t0x30\n");
}

TEST(KcdataPayload, ArrayOfImages) {
  Bytes images;
  for (const uint64_t address : {0x1000, 0x2000}) images.u64(address).u64(~0ull).u64(~0ull);
  EXPECT_EQ(payloadText(Bytes().array(49, 2, images)),
            "of 2 Elements of type LIBRARY_LOADINFO64 \n"
            "\t\t(UUID not yet)@0x1000\n\t\t(UUID not yet)@0x2000\n");
}

TEST(KcdataPayload, ArrayOfAnUnknownKindEndsAtOnce) {
  EXPECT_EQ(payloadText(Bytes().array(2311, 4, Bytes().upTo(16))),
            "of 4 Elements of type _DONATING_PIDS \nNOT YET!");
  EXPECT_EQ(payloadText(Bytes().array(2310, 1, threadPayload(1, 2))),
            "of 1 Elements of type _THREAD_SNAPSHOT \nNOT YET!");
}

TEST(KcdataPayload, EmptyArray) {
  EXPECT_EQ(payloadText(Bytes().array(2326, 0, Bytes().upTo(16))),
            "of 0 Elements of type _USER_STACKLR64 \n");
  EXPECT_EQ(payloadText(Bytes().array(2326, 5, {})), "of 5 Elements of type _USER_STACKLR64 \n");
}

// The next item is no element of this one.
TEST(KcdataPayload, ArrayEndsWithItsItem) {
  const Bytes two = Bytes().u64(1).u64(2);
  for (const uint32_t count : {3u, 4u, 16u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    EXPECT_EQ(payloadText(Bytes().array(2324, count, two).item(54, Bytes().u64(3))),
              "of " + std::to_string(static_cast<int32_t>(count)) +
                  " Elements of type _KERN_STACKLR64 \n\t\t0x1\n\t\t0x2\n");
  }
  EXPECT_EQ(payloadText(Bytes().array(2324, 2, Bytes().u64(1).word(uint32_t{2})).u64(~0ull)),
            "of 2 Elements of type _KERN_STACKLR64 \n\t\t0x1\n\t\t0x2\n");
}

TEST(KcdataPayload, ArrayWithMoreFillerThanBytes) {
  EXPECT_EQ(payloadText(Bytes().array(2324, 1, Bytes().u64(1), 0x2F)),
            "of 1 Elements of type _KERN_STACKLR64 \n\t\t0x1\n");
}

// A count that makes elements shorter than any is, or that does not divide the bytes, tells nothing
// of their length: what is read is what is there.
TEST(KcdataPayload, ArrayWithACountThatMakesNoSense) {
  EXPECT_EQ(payloadText(Bytes().array(2326, 4, Bytes().u64(0x1122334455).u64(0x66778899AA))),
            "of 4 Elements of type _USER_STACKLR64 \n\t\t0x1122334455\n\t\t0x66778899aa\n");
  EXPECT_EQ(payloadText(Bytes().array(2339, 2, Bytes().u64(1).u64(2).u64(3).u64(4).upTo(41), 17)),
            "of 2 Elements of type _INSTRS_CYCLES \nI: 1 C:2 PI:3 PC:4I: 0 C:0 PI:0 PC:0");
}

TEST(KcdataPayload, ArrayOfNames) {
  const Bytes names = Bytes().text("alpha").upTo(8).text("beta").upTo(16).text("gamma").upTo(24);
  const std::string text = "of 3 Elements of type _THREAD_NAME\n\talpha\tbeta\tgamma";
  EXPECT_EQ(payloadText(Bytes().array(2313, 3, names)), text);
  EXPECT_EQ(payloadText(Bytes().array(2313, 3, Bytes(names).upTo(25))), text);
}

// A name that goes on behind its word is shown again from each word that it goes through.
TEST(KcdataPayload, ArrayOfNamesThatRunIntoOneAnother) {
  EXPECT_EQ(payloadText(Bytes().array(2313, 2, Bytes().text("a longer name").upTo(33))),
            "of 2 Elements of type _THREAD_NAME\n\ta longer name\t name");
  EXPECT_EQ(payloadText(Bytes().array(2313, 2, Bytes().text("a longer name").upTo(32))),
            "of 2 Elements of type _THREAD_NAME\n\ta longer name\t name");
}

// As long as a kernel's names can be, and no longer: the last ones end with the bytes.
TEST(KcdataPayload, ArrayOfNamesWithoutEnd) {
  std::string text = "of 10 Elements of type _THREAD_NAME\n";
  for (const size_t length : {64, 64, 64, 57, 49, 41, 33, 25, 17, 9}) {
    text += "\t" + std::string(length, 'n');
  }
  EXPECT_EQ(payloadText(Bytes().array(2313, 10, Bytes().text(std::string(81, 'n')))), text);
}

TEST(KcdataPayload, ArrayOfEmptyTextsEnds) {
  EXPECT_EQ(payloadText(Bytes().array(2318, 1000, Bytes().text("ab").upTo(16))),
            "of 1000 Elements of type _BOOTARGS\nab\n\n");
}

// Kept: elements are stepped over by a size that is not that of older kernels' records.
TEST(KcdataPayload, ArrayOfShorterGroups) {
  Bytes groups;
  for (const uint64_t id : {1, 2, 3}) groups.u64(id).text("old").upTo(24 * id);
  EXPECT_EQ(payloadText(Bytes().array(2334, 3, groups)),
            "of 3 Elements of type _THREAD_GROUP_SNAPSHOT \n"
            "ID: 0x1, Name: old, Flags: 0x0\nID: 0x3, Name: old, Flags: 0x0\n");
}

TEST(KcdataPayload, EndOfAContainer) {
  EXPECT_EQ(payloadText(Bytes().item(20, Bytes().upTo(16))), "");
}

TEST(KcdataPayload, Thread) {
  EXPECT_EQ(payloadText(Bytes().item(2310, threadPayload(0x1A2B, 0))),
            "Thread 128 bytes (128)\n\t\tTID: 0x1a2b");
  EXPECT_EQ(payloadText(Bytes().item(2310, threadPayload(0x1A2B, 0xFFFFFFF007001234))),
            "Thread 128 bytes (128)\n\t\tTID: 0x1a2b\tContinuation: 0xfffffff007001234");
}

TEST(KcdataPayload, ThreadOfOtherKernels) {
  for (const uint32_t size : {104u, 112u}) {
    EXPECT_EQ(payloadText(Bytes().item(2310, threadPayload(1, 2).upTo(size))),
              "Thread " + std::to_string(size) + " bytes (128)\n");
  }
  for (const uint32_t size : {0u, 103u, 105u, 120u, 127u, 129u, 144u}) {
    EXPECT_EQ(payloadText(Bytes().item(2310, threadPayload(1, 2).upTo(size))),
              "Thread " + std::to_string(size) + " bytes (128)\nWhat version is this?!\n");
  }
}

TEST(KcdataPayload, ThreadGroup) {
  EXPECT_EQ(payloadText(Bytes().item(2334, groupPayload(0x21, "group", 3))),
            "ID: 0x21, Name: group, Flags: 0x3\n");
  EXPECT_EQ(payloadText(Bytes().item(2334, Bytes().u64(0x21)).u64(~0ull)),
            "ID: 0x21, Name: , Flags: 0x0\n");
}

TEST(KcdataPayload, OfAnyOtherTypeIsOneElement) {
  EXPECT_EQ(payloadText(Bytes().item(2319, Bytes().text("Darwin").upTo(16))), "Darwin\n");
  EXPECT_EQ(payloadText(Bytes().item(54, Bytes().upTo(16))), "NOT YET!");
}

TEST(KcdataPayload, EndsWithTheBuffer) {
  EXPECT_EQ(payloadText(Bytes().item(2319, Bytes().text("cut"), 0, 5000)), "cut\n");
  EXPECT_EQ(payloadText(Bytes().item(0x20, Bytes().u64(1), uint64_t{2324} << 32 | 9, 0xFFFFFFFF)),
            "of 9 Elements of type _KERN_STACKLR64 \n\t\t0x1\n");
  EXPECT_EQ(payloadText(Bytes().upTo(7)), "NOT YET!");
}

// Whole buffers

TEST(Kcdata, OpeningHeaderAlonePrintsNothing) {
  EXPECT_EQ(parsed(opened()), "");
  EXPECT_EQ(parsed(opened(), 3), "");
  EXPECT_EQ(parsed(opened().endOfData(), 3), "");
  EXPECT_EQ(parsed({}), "");
  EXPECT_EQ(outputOf([] { parse_stackshot(nullptr, 0, 3, 0); }), "");
}

Bytes wholeSnapshot() {
  return opened()
      .item(2319, Bytes().text("Darwin 18.0").upTo(16))
      .begin(2307)
      .item(2309, taskPayload(40, "launchd", 4096))
      .begin(2308)
      .item(2310, threadPayload(0x99, 0))
      .item(2313, Bytes().text("main").upTo(64))
      .array(2326, 1, Bytes().u64(0x7000).upTo(16), 0x28)
      .end()
      .item(2321, Bytes().word(int32_t{3}).upTo(16))
      .end()
      .endOfData();
}

TEST(Kcdata, IndentsByContainers) {
  EXPECT_EQ(parsed(wholeSnapshot()),
            "_OSVERSION Darwin 18.0\n\n"
            "CONTAINER_BEGIN  Task container\n"
            "\t_TASK_SNAPSHOT  \tCOMM: launchd\tPID: 40, Task Size: 4096\n\n"
            "\tCONTAINER_BEGIN  Thread container\n"
            "\t\t_THREAD_SNAPSHOT  Thread 128 bytes (128)\n\t\tTID: 0x99\n"
            "\t\t_THREAD_NAME \tmain\n"
            "\t\tARRAY  of 1 Elements of type _USER_STACKLR64 \n\t\t0x7000\n\n"
            "\tCONTAINER_END  \n"
            "\t_JETSAM_LEVEL  NOT YET!\n"
            "CONTAINER_END  \n");
}

TEST(Kcdata, CompactThreadsOnly) {
  EXPECT_EQ(parsed(wholeSnapshot(), 1, 1),
            "\t  Thread container\n"
            "\t\t_THREAD_SNAPSHOT  Thread 128 bytes (128)\n\t\tTID: 0x99\n"
            "\t\tName:  \tmain\n"
            "\t\tARRAY  of 1 Elements of type _USER_STACKLR64 \n\t\t0x7000\n\n");
}

TEST(Kcdata, ShowsOffsetsDepthsAndNumbers) {
  EXPECT_EQ(parsed(opened()
                       .item(54, Bytes().upTo(16))
                       .begin(2307)
                       .begin(2308)
                       .item(55)
                       .end()
                       .end()
                       .array(2324, 0, {}, 0x2A),
                   2),
            "0x20: 0) PID (0x36) NOT YET!\n"
            "0x40: 0) CONTAINER_BEGIN (0x13) Task container\n"
            "0x60: \t1) CONTAINER_BEGIN (0x13) Thread container\n"
            "0x80: \t\t2) PROCNAME (0x37) NOT YET!\n"
            "0x90: \t1) CONTAINER_END (0x14) \n"
            "0xa0: 0) CONTAINER_END (0x14) \n"
            "0xb0: 0) ARRAY (0x11) of 0 Elements of type _KERN_STACKLR64 (0x914)\n\n");
}

// Kept: the offsets are there without their items.
TEST(Kcdata, ShowsOffsetsOfWhatIsNotPrinted) {
  EXPECT_EQ(parsed(opened().item(54).begin(2307).begin(2308).end().end(), 2, 1),
            "0x20: 0x30: 0x50: \t1) CONTAINER_BEGIN (0x13) Thread container\n0x70: 0x80: ");
}

TEST(Kcdata, ThreadsOnlyPrintsEveryThread) {
  const Bytes bytes = opened()
                          .item(54)
                          .begin(2307)
                          .item(2309, taskPayload(1, "a", 2))
                          .begin(2308)
                          .item(2313, Bytes().text("one").upTo(16))
                          .end()
                          .item(54)
                          .begin(2308)
                          .item(2313, Bytes().text("two").upTo(16))
                          .end()
                          .end()
                          .begin(2307)
                          .item(2309, taskPayload(3, "b", 4))
                          .end();
  EXPECT_EQ(parsed(bytes, 0, 1),
            "\tCONTAINER_BEGIN  Thread container\n\t\t_THREAD_NAME \tone\n"
            "\tCONTAINER_BEGIN  Thread container\n\t\t_THREAD_NAME \ttwo\n");
  EXPECT_EQ(parsed(opened().item(54).begin(2307).end(), 1, 1), "");
}

TEST(Kcdata, OtherContainersHaveNoName) {
  EXPECT_EQ(parsed(opened().begin(2307).begin(2353).item(54).end()),
            "CONTAINER_BEGIN  Task container\n"
            "\tCONTAINER_BEGIN  NOT YET!\n"
            "\t\tPID  NOT YET!\n"
            "\tCONTAINER_END  \n");
}

TEST(Kcdata, UnknownTypesBreakTheirLine) {
  EXPECT_EQ(parsed(opened().item(18)), "UNKNOWN\n  NOT YET!\n");
  EXPECT_EQ(parsed(opened().item(2376), 2), "0x20: 0) UNKNOWN\n (0x948) NOT YET!\n");
}

TEST(Kcdata, EveryKindOfArrayIsOne) {
  for (uint32_t type = 0x20; type <= 0x2F; type++) {
    EXPECT_EQ(parsed(opened().array(2311, 1, Bytes().upTo(16), type)),
              "ARRAY  of 1 Elements of type _DONATING_PIDS \nNOT YET!\n");
  }
}

TEST(Kcdata, StopsAtAnItemThatRunsPastTheEnd) {
  const std::string before = "PID  NOT YET!\n";
  for (const uint32_t size : {17u, 0x7FFFFFFFu, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
    EXPECT_EQ(parsed(opened().item(54).item(55, Bytes().upTo(16), 0, size)), before) << size;
    EXPECT_EQ(parsed(Bytes().item(0x59A25807, Bytes().upTo(16), 0, size)), "") << size;
  }
  for (size_t rest = 1; rest < 16; rest++) {
    EXPECT_EQ(parsed(opened().item(54).upTo(32 + rest)), before) << rest;
  }
}

TEST(Kcdata, StopsAtTheEndMarker) {
  EXPECT_EQ(parsed(opened().item(54).endOfData().item(55)), "PID  NOT YET!\n");
  EXPECT_EQ(parsed(opened().endOfData().item(55), 2), "");
}

TEST(Kcdata, EndsThatOpenNothing) {
  EXPECT_EQ(parsed(opened().end().end().begin(2307).end().end().item(54), 2),
            "0x20: 0) CONTAINER_END (0x14) \n"
            "0x30: 0) CONTAINER_END (0x14) \n"
            "0x40: 0) CONTAINER_BEGIN (0x13) Task container\n"
            "0x60: 0) CONTAINER_END (0x14) \n"
            "0x70: 0) CONTAINER_END (0x14) \n"
            "0x80: 0) PID (0x36) NOT YET!\n");
}

TEST(Kcdata, NestsDeeplyWithoutEnds) {
  Bytes bytes = opened();
  for (int i = 0; i < 1000; i++) bytes.begin(2307);
  const std::string text = parsed(bytes, 2);
  EXPECT_THAT(text, StartsWith("0x20: 0) CONTAINER_BEGIN (0x13) Task container\n0x40: \t1) "));
  // The indentation has a bound, the number has none.
  const std::string tabs(256, '\t');
  EXPECT_THAT(text, EndsWith("0x7d00: " + tabs + "999) CONTAINER_BEGIN (0x13) Task container\n"));
}

// Whatever the items are, twice as many of them print twice as much.

Bytes repeated(size_t times, const Bytes &bytes) {
  Bytes all = opened();
  const std::string_view text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
  for (size_t i = 0; i < times; i++) all.text(text);
  return all;
}

void expectBounded(const Bytes &bytes) {
  const size_t most = kMostPrintedPerByte * bytes.size();
  EXPECT_LE(parsed(bytes).size(), most);
  EXPECT_LE(parsed(bytes, 2).size(), most);
  EXPECT_LE(parsed(bytes, 2, 1).size(), most);
}

TEST(KcdataGrowth, OfContainersWithoutEnds) {
  for (const size_t count : {1000, 10000}) {
    expectBounded(repeated(count, Bytes().item(19)));
    expectBounded(repeated(count, Bytes().begin(2308)));
    expectBounded(repeated(count, Bytes().begin(2307).begin(2308).end()));
  }
}

TEST(KcdataGrowth, OfItemsAtTheDeepest) {
  const Bytes begins = repeated(1000, Bytes().item(19));
  const std::string_view text(reinterpret_cast<const char *>(begins.data()), begins.size());
  for (const Bytes &item :
       {Bytes().item(2353), Bytes().item(0xFFFFFFFF), Bytes().item(2310),
        Bytes().array(2353, 0xFFFFFFFF, {}), Bytes().array(2374, 0x80000000, Bytes().text("\xFF")),
        Bytes().array(2309, 2, Bytes().text("\xFF")), Bytes().array(2318, 9, {})}) {
    Bytes bytes = Bytes().text(text);
    for (int i = 0; i < 10000; i++) {
      bytes.text({reinterpret_cast<const char *>(item.data()), item.size()});
    }
    expectBounded(bytes);
  }
}

// Elements of every kind, with counts that divide the bytes, that don't, and that are not theirs.
TEST(KcdataGrowth, OfElements) {
  for (const uint32_t type :
       {0u, 49u, 2309u, 2313u, 2318u, 2319u, 2326u, 2329u, 2334u, 2339u, 2374u}) {
    for (const char *pattern : {"n", "\xFF", "\xF0\x9F\x98\x80"}) {
      std::string text;
      while (text.size() < 16384) text += pattern;
      for (const uint32_t count : {0u, 1u, 2u, 3u, 341u, 512u, 2048u, 2049u, 16384u, 0xFFFFFFFFu}) {
        for (const uint32_t kind : {0x20u, 0x21u}) {
          SCOPED_TRACE(std::to_string(type) + ", " + std::to_string(count));
          expectBounded(opened().array(type, count, Bytes().text(text), kind));
        }
      }
    }
  }
}

// A name is shown from every word of it, but never more than a kernel keeps of one.
TEST(KcdataGrowth, OfNamesWithoutALength) {
  for (const size_t words : {1000, 10000, 100000}) {
    const std::string text(8 * words + 1, 'n');
    const Bytes bytes = opened().array(2313, static_cast<uint32_t>(words), Bytes().text(text));
    const std::string shown = parsed(bytes);
    EXPECT_EQ(std::count(shown.begin(), shown.end(), '\t'), words);
    EXPECT_LE(shown.size(), 65 * words + 50);
    EXPECT_GT(shown.size(), 65 * words - 300);
  }
}

// No byte of a buffer is trusted: each cut short, and each with one byte changed.
TEST(Kcdata, SurvivesBrokenBuffers) {
  const Bytes whole = wholeSnapshot();
  for (size_t size = 0; size < whole.size(); size++) {
    EXPECT_LE(parsed(Bytes(whole).upTo(size)).size(), parsed(whole).size()) << size;
  }
  for (size_t i = 0; i < whole.size(); i++) {
    std::string changed(reinterpret_cast<const char *>(whole.data()), whole.size());
    changed[i] = static_cast<char>(~changed[i]);
    EXPECT_EQ(parsed(Bytes().text(changed), 3).find('\x1B'), std::string::npos) << i;
  }
}

}  // namespace
