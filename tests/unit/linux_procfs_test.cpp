// Reading small files and directories, and the scanning of their texts.
#include "host/linux/procfs.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <limits>
#include <string>

#include "host/darwin/errors.h"

namespace host::linux_machine {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

// A directory that is gone, with what is in it, after the test.
class TemporaryDirectory {
 public:
  TemporaryDirectory() : path_("/tmp/linux_procfs_test.XXXXXX") {
    EXPECT_NE(mkdtemp(path_.data()), nullptr);
  }
  ~TemporaryDirectory() {
    for (const std::string &name : files_) unlink((path_ + "/" + name).c_str());
    for (const std::string &name : directories_) rmdir((path_ + "/" + name).c_str());
    rmdir(path_.c_str());
  }
  void addFile(const std::string &name, const std::string &text) {
    FileHandle file(open((path_ + "/" + name).c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600));
    ASSERT_TRUE(file.isOpen());
    ASSERT_EQ(write(file.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    files_.push_back(name);
  }
  void addDirectory(const std::string &name) {
    ASSERT_EQ(mkdir((path_ + "/" + name).c_str(), 0700), 0);
    directories_.push_back(name);
  }
  const char *path() const { return path_.c_str(); }

 private:
  std::string path_;
  std::vector<std::string> files_;
  std::vector<std::string> directories_;
};

TEST(LinuxProcfs, ReadsAFileOfAnySizeWhole) {
  TemporaryDirectory directory;
  FileReader reader;
  FileHandle handle = openStartingPoint(AT_FDCWD, directory.path());
  ASSERT_TRUE(handle.isOpen());
  for (size_t size : {0u, 1u, 16383u, 16384u, 16385u, 32768u, 100000u}) {
    std::string text(size, 'a' + static_cast<char>(size % 26));
    std::string name = "f" + std::to_string(size);
    directory.addFile(name, text);
    std::string_view read;
    ASSERT_EQ(reader.readRecord(handle.get(), name.c_str(), read), kAnswered);
    EXPECT_EQ(read, text);
    ASSERT_EQ(reader.readList(handle.get(), name.c_str(), read), kAnswered);
    EXPECT_EQ(read, text);
  }
}

TEST(LinuxProcfs, AFileBeyondTheLimitIsRefusedNotCut) {
  TemporaryDirectory directory;
  directory.addFile("large", std::string(FileReader::kLargest + 1, 'x'));
  FileReader reader;
  FileHandle handle = openStartingPoint(AT_FDCWD, directory.path());
  std::string_view read = "untouched";
  EXPECT_EQ(reader.readRecord(handle.get(), "large", read), darwin::DARWIN_EOVERFLOW);
  EXPECT_EQ(read, "untouched");
}

TEST(LinuxProcfs, TheBeginningOfAFileIsCutWhereAsked) {
  FileReader reader;
  std::string_view text;
  TemporaryDirectory directory;
  directory.addFile("file", "0123456789");
  const FileHandle handle = openDirectory(AT_FDCWD, directory.path());
  ASSERT_EQ(reader.readBeginning(handle.get(), "file", 4, text), kAnswered);
  EXPECT_EQ(text, "0123");
  for (const size_t most : {size_t{10}, size_t{11}, FileReader::kLargest * 2}) {
    ASSERT_EQ(reader.readBeginning(handle.get(), "file", most, text), kAnswered);
    EXPECT_EQ(text, "0123456789");
  }
  ASSERT_EQ(reader.readBeginning(handle.get(), "file", 0, text), kAnswered);
  EXPECT_EQ(text, "");
  EXPECT_EQ(reader.readBeginning(handle.get(), "none", 4, text), darwin::DARWIN_ENOENT);
}

TEST(LinuxProcfs, AFileThatIsNotThereIsAnError) {
  FileReader reader;
  std::string_view read;
  EXPECT_EQ(reader.readRecord(AT_FDCWD, "/proc/self/no such file", read), darwin::DARWIN_ENOENT);
  EXPECT_EQ(reader.readRecord(-1, "stat", read), darwin::DARWIN_EBADF);
}

TEST(LinuxProcfs, ListsNumbersAndNothingElse) {
  TemporaryDirectory directory;
  for (const char *name : {"1", "42", "2147483647", "2147483648", "0", "-3", "7a", "a7", "007"}) {
    directory.addFile(name, "");
  }
  FileHandle handle = openDirectory(AT_FDCWD, directory.path());
  DirectoryReader lister;
  for (int again = 0; again < 2; again++) {
    std::vector<int32_t> numbers;
    ASSERT_EQ(lister.readNumbers(handle.get(), numbers), kAnswered);
    EXPECT_THAT(numbers, UnorderedElementsAre(1, 42, std::numeric_limits<int32_t>::max()));
  }
}

TEST(LinuxProcfs, ListsMoreEntriesThanOneReadTakes) {
  TemporaryDirectory directory;
  std::string padding(200, '0');
  for (int i = 1; i <= 500; i++) directory.addFile(std::to_string(i), "");
  for (int i = 1; i <= 200; i++) directory.addFile("x" + padding + std::to_string(i), "");
  FileHandle handle = openDirectory(AT_FDCWD, directory.path());
  DirectoryReader lister;
  std::vector<int32_t> numbers;
  ASSERT_EQ(lister.readNumbers(handle.get(), numbers), kAnswered);
  EXPECT_EQ(numbers.size(), 500u);
}

TEST(LinuxProcfs, NamesTellDirectories) {
  TemporaryDirectory directory;
  directory.addFile("file", "");
  directory.addDirectory("below");
  FileHandle handle = openDirectory(AT_FDCWD, directory.path());
  DirectoryReader lister;
  std::vector<std::string> seen;
  ASSERT_EQ(lister.readNames(handle.get(),
                             [&](const char *name, bool isDirectory) {
                               seen.push_back(std::string(name) + (isDirectory ? "/" : ""));
                             }),
            kAnswered);
  EXPECT_THAT(seen, UnorderedElementsAre("file", "below/"));
  EXPECT_EQ(lister.readNames(-1, [](const char *, bool) {}), darwin::DARWIN_EBADF);
}

TEST(LinuxProcfs, ANumberIsTheWholeText) {
  struct {
    const char *text;
    bool good;
    int32_t value;
  } const cases[] = {
      {"0", true, 0},           {"-1", true, -1},          {"2147483647", true, 2147483647},
      {"2147483648", false, 0}, {"-2147483649", false, 0}, {"", false, 0},
      {" 1", false, 0},         {"1 ", false, 0},          {"+1", false, 0},
      {"1x", false, 0},         {"-", false, 0},
  };
  for (const auto &one : cases) {
    int32_t value = 99;
    EXPECT_EQ(parseNumber(std::string_view(one.text), value), one.good) << one.text;
    EXPECT_EQ(value, one.good ? one.value : 99) << one.text;
  }
  uint64_t large = 0;
  EXPECT_TRUE(parseNumber(std::string_view("18446744073709551615"), large));
  EXPECT_FALSE(parseNumber(std::string_view("18446744073709551616"), large));
  EXPECT_FALSE(parseNumber(std::string_view("-1"), large));
}

TEST(LinuxProcfs, ANumberMayHaveAnotherBase) {
  uint64_t value = 99;
  EXPECT_TRUE(parseNumber("ffffffffffffffff", value, 16));
  EXPECT_EQ(value, UINT64_MAX);
  EXPECT_TRUE(parseNumber("17", value, 8));
  EXPECT_EQ(value, 15u);
  EXPECT_FALSE(parseNumber("18", value, 8));
  EXPECT_FALSE(parseNumber("0x1", value, 16)) << "the prefix is no digit";
  EXPECT_EQ(value, 15u);
  EXPECT_TRUE(TextCursor(" 7f ").number(value, 16));
  EXPECT_EQ(value, 0x7Fu);
}

TEST(LinuxProcfs, AnAddressBeginsWithItsPrefix) {
  uint64_t value = 99;
  for (const char *text : {"", "0", "1f", "0x", "0X1f", "x1f", "0x1g", "0x-1", "0x+1", " 0x1",
                           "0x1 ", "0x10000000000000000"}) {
    EXPECT_FALSE(parseAddress(text, value)) << text;
    EXPECT_EQ(value, 99u) << text;
  }
  EXPECT_TRUE(parseAddress("0x7ffc11AEEB38", value));
  EXPECT_EQ(value, 0x7FFC11AEEB38u);
  EXPECT_TRUE(parseAddress("0xffffffffffffffff", value));
  EXPECT_EQ(value, UINT64_MAX);
}

TEST(LinuxProcfs, ALineNeedsItsEnd) {
  TextCursor cursor("one\n\nlast");
  std::string_view line;
  ASSERT_TRUE(cursor.line(line));
  EXPECT_EQ(line, "one");
  ASSERT_TRUE(cursor.line(line));
  EXPECT_EQ(line, "");
  EXPECT_FALSE(cursor.line(line));
  EXPECT_EQ(cursor.rest(), "last");
}

struct Pair {
  uint64_t first;
  uint64_t second;
};
constexpr NumberRow<Pair> kPairRows[] = {{"first", &Pair::first}, {"second", &Pair::second}};

TEST(LinuxProcfs, RowsAreFoundInAnyOrder) {
  for (const char *text : {"first: 1\nsecond: 2 kB\n", "second 2\nother 9\nfirst 1\n",
                           "firsts: 7\nfirst:\t1\nfirst: 3\nsecond:    2\n"}) {
    Pair pair{};
    uint64_t seen = 0;
    EXPECT_TRUE(readNumberRows(text, kPairRows, pair, seen)) << text;
    EXPECT_EQ(pair.first, 1u) << text;
    EXPECT_EQ(pair.second, 2u) << text;
    EXPECT_EQ(seen, 3u);
  }
  Pair pair{};
  uint64_t seen = 0;
  EXPECT_TRUE(readNumberRows("second: 2\nno colon\n", kPairRows, pair, seen));
  EXPECT_EQ(seen, 2u);
  for (const char *text : {"first: x\n", "first:\n", "first: 1", "second: 2\nfirst"}) {
    EXPECT_FALSE(readNumberRows(text, kPairRows, pair, seen)) << text;
  }
}

TEST(LinuxProcfs, SaturateStopsAtTheLargestNumber) {
  EXPECT_EQ(saturate<int32_t>(0), 0);
  EXPECT_EQ(saturate<int32_t>(2147483647), 2147483647);
  EXPECT_EQ(saturate<int32_t>(2147483648), 2147483647);
  EXPECT_EQ(saturate<uint32_t>(UINT64_MAX), UINT32_MAX);
}

}  // namespace
}  // namespace host::linux_machine
