// What is written of a device file, and that its reader takes it for the same.
#include "capture/device_file_writer.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/simulator/toml_library.h"
#include "host/simulator/toml_parser.h"

namespace {

using namespace sondex;

template <typename Write>
std::string written(Write write) {
  char *text = nullptr;
  size_t size = 0;
  FILE *stream = open_memstream(&text, &size);
  beginDeviceFile(stream);
  write();
  EXPECT_EQ(fclose(stream), 0);
  std::string copy(text, size);
  free(text);
  return copy;
}

std::string writtenText(std::string_view text) {
  return written([text] { writeText("name", text.data(), text.size()); });
}

TEST(DeviceFileWriter, ValuesAreOneToALine) {
  EXPECT_EQ(written([] {
              writeNumber("caller", -1);
              writeTable("kernel");
              writeFlag("kernel-task", true);
              writeAddress("wait-event", UINT64_MAX);
              writeEntry("process");
              writeText("name", "launchd", 7);
            }),
            "caller = -1\n"
            "\n[kernel]\nkernel-task = true\nwait-event = \"0xffffffffffffffff\"\n"
            "\n[[process]]\nname = \"launchd\"\n");
}

TEST(DeviceFileWriter, WhatIsNestedIsInOneLine) {
  EXPECT_EQ(written([] {
              beginArray("threads");
              beginInlineTable(nullptr);
              writeNumber("share", 20);
              beginArray("flags");
              endArray();
              beginArray("user-stack");
              writeNumber(nullptr, 1);
              writeNumber(nullptr, 2);
              endArray();
              endInlineTable();
              beginInlineTable(nullptr);
              endInlineTable();
              endArray();
              writeNumber("band", 10);
            }),
            "threads = [{ share = 20, flags = [], user-stack = [1, 2] }, {  }]\n"
            "band = 10\n");
}

TEST(DeviceFileWriter, TextsEndAtTheirEnd) {
  EXPECT_EQ(written([] { writeText("name", "launchd", 4); }), "name = \"laun\"\n");
  EXPECT_EQ(writtenText(std::string_view("ab\0cd", 5)), "name = \"ab\"\n");
}

TEST(DeviceFileWriter, TextsCantLeaveTheirQuotes) {
  EXPECT_EQ(writtenText("\"\\\n\x7f\x1b"), "name = \"\\\"\\\\\\u000A\\u007F\\u001B\"\n");
  EXPECT_EQ(writtenText("caf\xC3\xA9"), "name = \"caf\xC3\xA9\"\n");
}

TEST(DeviceFileWriter, BytesOfNoCharacterAreQuestionMarks) {
  EXPECT_EQ(writtenText("a\xFF\xC3"), "name = \"a??\"\n");
  EXPECT_EQ(writtenText("\xED\xA0\x80"), "name = \"???\"\n");  // half of a pair
}

TEST(DeviceFileWriter, EveryCharacterIsReadAgain) {
  std::string text;
  for (char c = 1; c < 0x7F; c++) text += c;
  text += "\x7F\xC2\x80\xE2\x80\xAE\xEF\xBB\xBF\xF0\x9F\x93\xB1";
  const auto root = host::simulator::parseToml(writtenText(text));
  EXPECT_EQ(root->as_table()->at("name").value<std::string>(), text);
}

}  // namespace
