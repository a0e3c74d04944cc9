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
std::string written(Write write, FileForm form = FileForm::kTOML) {
  char *text = nullptr;
  size_t size = 0;
  FILE *stream = open_memstream(&text, &size);
  useFileForm(form);
  beginDeviceFile(stream);
  write();
  endDeviceFile();
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

TEST(DeviceFileWriter, RowsAreALineEach) {
  const auto write = [] {
    beginRows("threads");
    for (int share : {20, 30}) {
      beginInlineTable(nullptr);
      writeNumber("copies", 2);
      writeNumber("share", share);
      endInlineTable();
    }
    endArray();
    beginRows("regions");
    endArray();
  };
  EXPECT_EQ(written(write),
            "threads = [\n"
            "  { copies = 2, share = 20 },\n"
            "  { copies = 2, share = 30 },\n"
            "]\n"
            "regions = [\n]\n");
}

TEST(DeviceFileWriter, NumbersAreWrittenAsTheFileReadsThem) {
  EXPECT_EQ(written([] {
              writeDecimal("age", 1'500'000, 6);
              writeDecimal("growth", -2'000'000, 6);
              writeDecimal("up", 3, 6);
              writeDecimal("start", 0, 9);
              writeSize("size", 98304);
              writeSize("most", uint64_t{3} << 40);
              writeSize("odd", 1025);
              writeSize("none", 0);
              writeMoment("begin", 1709647629, 0);
              writeMoment("later", 1709647629, 5);
              beginBytes("contents");
              const uint8_t bytes[] = {0xCF, 0xFA, 0x00};
              addBytes(bytes, 1);
              addBytes(bytes + 1, 2);
              endBytes();
            }),
            "age = 1.5\ngrowth = -2\nup = 0.000003\nstart = 0\n"
            "size = \"96K\"\nmost = \"3T\"\nodd = 1025\nnone = 0\n"
            "begin = 2024-03-05T14:07:09Z\nlater = 2024-03-05T14:07:09.000005Z\n"
            "contents = \"cffa00\"\n");
}

TEST(DeviceFileWriter, FlagsAreWordsAndTheRestANumber) {
  static const FlagWord kWords[] = {{"system", 1}, {"traced", 2}};
  EXPECT_EQ(written([] {
              writeFlags("flags", 0x43, kWords);
              writeFlags("none", 0, kWords);
              writeWord("state", 2, kWords);
              writeWord("other", 3, kWords);
            }),
            "flags = [\"system\", \"traced\", 64]\nnone = []\nstate = \"traced\"\nother = 3\n");
}

TEST(DeviceFileWriter, WhatLooksLikeAPatternStandsForItself) {
  EXPECT_EQ(writtenText("{name}{pid{pid}{index}{brace}{other}"),
            "name = \"{brace}name}{pid{brace}pid}{brace}index}{brace}brace}{other}\"\n");
  EXPECT_EQ(written([] { writePlainText("name", "{pid}"); }), "name = \"{pid}\"\n");
}

TEST(DeviceFileWriter, FragmentsAreWrittenElsewhereFirst) {
  for (const FileForm form : {FileForm::kTOML, FileForm::kJSON}) {
    const auto write = [] {
      FILE *spool = tmpfile();
      ASSERT_NE(spool, nullptr);
      beginFragment(spool);
      writeNumber("faults", 7);
      writeNumber("band", 10);
      const size_t size = endFragment();
      rewind(spool);
      writeEntry("process");
      writeNumber("pid", 1);
      EXPECT_TRUE(writeFragment(spool, size));
      fclose(spool);
      writeFlag("jetsam", false);
    };
    const bool isJSON = form == FileForm::kJSON;
    EXPECT_EQ(written(write, form),
              isJSON
                  ? "{\n  \"process\": [{\n    \"pid\": 1,\n    \"faults\": 7,\n    \"band\": 10,"
                    "\n    \"jetsam\": false}]\n}\n"
                  : "\n[[process]]\npid = 1\nfaults = 7\nband = 10\njetsam = false\n");
  }
}

TEST(DeviceFileWriter, AFragmentThatIsCutShortIsTold) {
  FILE *spool = tmpfile();
  ASSERT_NE(spool, nullptr);
  written([spool] { EXPECT_FALSE(writeFragment(spool, 1)); });
  fclose(spool);
}

TEST(DeviceFileWriter, JSONIsTheSameTree) {
  EXPECT_EQ(written(
                [] {
                  writeNumber("caller", 501);
                  writeTable("hardware");
                  writeSize("memory", 4096);
                  writeEntryWithin("processor");
                  writeNumber("user", 1);
                  writeEntryWithin("processor");
                  writeTable("clock");
                  writeMoment("start", 1709647629, 0);
                  writeEntry("process");
                  writeText("name", "a\"{pid}", 8);
                  writeEntry("process");
                  beginRows("threads");
                  beginInlineTable(nullptr);
                  writeDecimal("share", 125, 1);
                  beginArray("flags");
                  endArray();
                  endInlineTable();
                  endArray();
                  writeEntry("event");
                },
                FileForm::kJSON),
            R"({
  "caller": 501,
  "hardware": {
    "memory": 4096,
    "processor": [{
      "user": 1}, {}]},
  "clock": {
    "start": "2024-03-05T14:07:09Z"},
  "process": [{
    "name": "a\"{pid}"}, {
    "threads": [
  {"share": 12.5, "flags": []}
]}],
  "event": [{}]
}
)");
}

TEST(DeviceFileWriter, TextsEndAtTheirEnd) {
  EXPECT_EQ(written([] { writeText("name", "launchd", 4); }), "name = \"laun\"\n");
  EXPECT_EQ(writtenText(std::string_view("ab\0cd", 5)), "name = \"ab\"\n");
}

TEST(DeviceFileWriter, TextsCantLeaveTheirQuotes) {
  EXPECT_EQ(writtenText("\"\\\n\x7f\x1b"), "name = \"\\\"\\\\\\u000A\\u007F\\u001B\"\n");
  EXPECT_EQ(writtenText("\xC2\x9B\xE2\x80\xAE"), "name = \"\\u009B\\u202E\"\n");
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
