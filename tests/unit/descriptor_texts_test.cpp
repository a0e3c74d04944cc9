#include "fds/descriptors.h"
#include "text/hex_dump.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <numeric>
#include <string>
#include <vector>

#include "darwin/uuid.h"
#include "tests/unit/curses_screen.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::errorOutputOf;
using sampled::outputOf;

class DescriptorText : public testing::Test {
 protected:
  DisplayStateGuard guard;
};

using VnodeText = DescriptorText;

std::string textOf(const darwin::vnode_fdinfowithpath &info) {
  return outputOf([&] { EXPECT_GE(print_vnode_info_path(&info), 0); });
}

TEST_F(VnodeText, IsPathAndOffset) {
  darwin::vnode_fdinfowithpath info{};
  std::strcpy(info.pvip.vip_path, "/private/etc/hosts");
  EXPECT_EQ(textOf(info), "/private/etc/hosts @0x0        ");
  info.pfi.fi_offset = 0x1D4F;
  EXPECT_EQ(textOf(info), "/private/etc/hosts @0x1d4f     ");
  info.pfi.fi_offset = 0x12345678;
  EXPECT_EQ(textOf(info), "/private/etc/hosts @0x12345678 ");
  info.pfi.fi_offset = INT64_MAX;
  EXPECT_EQ(textOf(info), "/private/etc/hosts @0x7fffffffffffffff ");
  info.pfi.fi_offset = -1;
  EXPECT_EQ(textOf(info), "/private/etc/hosts @0xffffffffffffffff ");
}

TEST_F(VnodeText, OfAFileWithoutANameIsTheOffset) {
  EXPECT_EQ(textOf({}), " @0x0        ");
  EXPECT_EQ(outputOf([] { EXPECT_GE(print_vnode_info_path(nullptr), 0); }), "?????");
}

TEST_F(VnodeText, EndsAPathThatHasNoEnd) {
  // Larger than what the kernel fills, as the caller's buffer is.
  struct {
    darwin::vnode_fdinfowithpath info;
    char behind[64];
  } answer;
  std::memset(&answer, 'p', sizeof answer);
  answer.info.pfi.fi_offset = -1;
  EXPECT_EQ(textOf(answer.info), std::string(1024, 'p').append(" @0xffffffffffffffff "));
}

TEST_F(VnodeText, IsSafe) {
  darwin::vnode_fdinfowithpath info{};
  std::strcpy(info.pvip.vip_path, "/tmp/a\x1b[2J\n\t\xc3(\u00e9 %s");
  EXPECT_EQ(textOf(info),
            "/tmp/a?[2J???"
            "(\u00e9 %s @0x0        ");
}

TEST_F(VnodeText, GoesToTheScreenInFullScreenMode) {
  CursesScreen screen(5, 80);
  darwin::vnode_fdinfowithpath info{};
  std::strcpy(info.pvip.vip_path, "/etc");
  EXPECT_EQ(textOf(info), "");
  EXPECT_EQ(CursesScreen::textBeforeCursor(), "/etc @0x0        ");
}

using SemaphoreText = DescriptorText;

std::string textOf(const darwin::psem_fdinfo &info) {
  return outputOf([&] { EXPECT_GE(print_sem_info(&info), 0); });
}

TEST_F(SemaphoreText, IsTheName) {
  darwin::psem_fdinfo info{};
  EXPECT_EQ(textOf(info), "");
  std::strcpy(info.pseminfo.psem_name, "/SBSWallpaper");
  EXPECT_EQ(textOf(info), "/SBSWallpaper");
  std::strcpy(info.pseminfo.psem_name, "/a\x1b\x7f%n");
  EXPECT_EQ(textOf(info), "/a??%n");
}

TEST_F(SemaphoreText, EndsANameThatHasNoEnd) {
  struct {
    darwin::psem_fdinfo info;
    char behind[64];
  } answer;
  std::memset(&answer, 's', sizeof answer);
  EXPECT_EQ(textOf(answer.info), std::string(1024, 's'));
}

using SharedMemoryText = DescriptorText;

std::string textOf(const darwin::pshm_fdinfo &info) {
  return outputOf([&] { EXPECT_GE(print_shm_info(&info), 0); });
}

TEST_F(SharedMemoryText, IsTheNameWithTheAddressRightBehind) {
  darwin::pshm_fdinfo info{};
  EXPECT_EQ(textOf(info), "@0x0");
  std::strcpy(info.pshminfo.pshm_name, "apple.shm.notification_center");
  info.pshminfo.pshm_mappaddr = 0x110300000;
  EXPECT_EQ(textOf(info), "apple.shm.notification_center@0x110300000");
  std::strcpy(info.pshminfo.pshm_name, "a\nb");
  info.pshminfo.pshm_mappaddr = 0xABCDEF;
  EXPECT_EQ(textOf(info), "a?b@0xabcdef");
}

TEST_F(SharedMemoryText, EndsANameThatHasNoEnd) {
  struct {
    darwin::pshm_fdinfo info;
    char behind[64];
  } answer;
  std::memset(&answer, 'm', sizeof answer);
  answer.info.pshminfo.pshm_mappaddr = UINT64_MAX;
  EXPECT_EQ(textOf(answer.info), std::string(1024, 'm').append("@0xffffffffffffffff"));
}

using KqueueText = DescriptorText;

std::string textOf(uint64_t identifier, int16_t filter) {
  darwin::kevent_extinfo events[2]{};
  events[0].kqext_kev.ident = identifier;
  events[0].kqext_kev.filter = filter;
  events[1].kqext_kev.ident = 99;
  events[1].kqext_kev.filter = -4;
  return outputOf([&] { EXPECT_GE(print_kqueue_info(events), 0); });
}

TEST_F(KqueueText, IsTheFirstEvent) {
  EXPECT_EQ(textOf(5, -1), "(Filter: EVFILT_READ on descriptor 5) ");
  EXPECT_EQ(textOf(0, -17), "(Filter: EVFILT_WORKLOOP on descriptor 0) ");
  EXPECT_EQ(textOf(0x100000007, -2), "(Filter: EVFILT_WRITE on descriptor 7) ");
  EXPECT_EQ(textOf(UINT64_MAX, -5), "(Filter: EVFILT_PROC on descriptor -1) ");
  EXPECT_EQ(textOf(1, -11), "(Filter: Unknown: -11 - please tell Z!\n on descriptor 1) ");
  EXPECT_EQ(textOf(1, INT16_MIN), "(Filter: Unknown: -32768 - please tell Z!\n on descriptor 1) ");
}

TEST(FilterText, IsTheFiltersNameOrItsNumber) {
  const std::map<int32_t, std::string> kNames = {
      {-1, "EVFILT_READ"},     {-2, "EVFILT_WRITE"},  {-3, "EVFILT_AIO"},   {-4, "EVFILT_VNODE"},
      {-5, "EVFILT_PROC"},     {-6, "EVFILT_SIGNAL"}, {-7, "EVFILT_TIMER"}, {-8, "EVFILT_MACHPORT"},
      {-9, "EVFILT_FS"},       {-10, "EVFILT_USER"},  {-12, "EVFILT_VM"},   {-15, "EVFILT_EXCEPT"},
      {-17, "EVFILT_WORKLOOP"}};
  const auto unknown = [](int32_t filter) {
    return std::string("Unknown: ").append(std::to_string(filter)).append(" - please tell Z!\n");
  };
  for (int32_t filter = -30; filter <= 10; filter++) {
    const auto name = kNames.find(filter);
    EXPECT_EQ(evfiltToText(filter), name != kNames.end() ? name->second : unknown(filter));
  }
  EXPECT_EQ(evfiltToText(INT32_MIN), unknown(INT32_MIN)) << "whole, however long";
  EXPECT_EQ(evfiltToText(INT32_MAX), unknown(INT32_MAX));
  // 65535 is -1 in sixteen bits only.
  EXPECT_EQ(evfiltToText(65535), unknown(65535));
}

std::string dumpOf(const std::vector<uint8_t> &bytes) {
  return errorOutputOf(
      [&] { EXPECT_EQ(hexDump(bytes.data(), static_cast<int32_t>(bytes.size())), 0); });
}

TEST(HexDump, OfNothingIsAnOffset) {
  EXPECT_EQ(dumpOf({}), "0x0000: \n");
  const uint8_t byte = 1;
  EXPECT_EQ(errorOutputOf([&] { hexDump(&byte, -1); }), "0x0000: \n");
  EXPECT_EQ(errorOutputOf([&] { hexDump(&byte, INT32_MIN); }), "0x0000: \n");
}

TEST(HexDump, OfOneGroupHasNoCharacters) {
  EXPECT_EQ(dumpOf({0x41}), "0x0000: 0x41 \n");
  EXPECT_EQ(dumpOf({0, 1, 2, 0x41, 0x42, 0x7F, 0x80, 0xFF}),
            "0x0000: 0x00 0x01 0x02 0x41 0x42 0x7F 0x80 0xFF \n");
}

TEST(HexDump, ShowsTheCharactersOfTheGroupBefore) {
  EXPECT_EQ(dumpOf({'s', 'o', 'n', 'd', 'e', 'x', ' ', '~', 0x0A}),
            "0x0000: 0x73 0x6F 0x6E 0x64 0x65 0x78 0x20 0x7E \tsondex ~\n0x   8: 0x0A \n");
  EXPECT_EQ(dumpOf({0, 0x1F, 0x20, 0x7E, 0x7F, 0x80, 0xE9, 0xFF, 'a'}),
            "0x0000: 0x00 0x1F 0x20 0x7E 0x7F 0x80 0xE9 0xFF \t.. ~....\n0x   8: 0x61 \n");
}

TEST(HexDump, PadsLaterOffsetsWithBlanks) {
  std::vector<uint8_t> bytes(0x1001, 'z');
  const std::string dump = dumpOf(bytes);
  EXPECT_EQ(dump.find("0x0000: "), 0u);
  for (const char *offset :
       {"\n0x   8: ", "\n0x  10: ", "\n0x  F8: ", "\n0x 100: ", "\n0x FF8: ", "\n0x1000: 0x7A \n"})
    EXPECT_NE(dump.find(offset), std::string::npos) << offset;
  EXPECT_EQ(dump.find("\n0x0008"), std::string::npos);
}

TEST(HexDump, GoesToStandardErrorOnly) {
  EXPECT_EQ(outputOf([] { dumpOf({1, 2, 3}); }), "");
}

TEST(IdentifierText, IsInUpperCase) {
  const uint8_t uuid[16] = {0x00, 0x01, 0x02, 0x03, 0x45, 0x67, 0x89, 0xAB,
                            0xCD, 0xEF, 0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54};
  char text[40];
  std::memset(text, '#', sizeof text);
  darwin::uuid_unparse(uuid, text);
  EXPECT_STREQ(text, "00010203-4567-89AB-CDEF-FEDCBA987654");
  EXPECT_EQ(text[37], '#');
}

}  // namespace
