// What tests rely on when they compare with kept files: that no difference is lost, that a file is
// written only when that was asked for, and that a file without a test is found.
#include "harness/kept.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>

namespace test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace fs = std::filesystem;

class KeptFolderTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string path = (fs::temp_directory_path() / "sondex-kept-XXXXXX").string();
    ASSERT_NE(mkdtemp(path.data()), nullptr);
    folder_.path = path;
  }
  void TearDown() override { fs::remove_all(folder_.path); }

  void put(const std::string &name, const std::string &text) {
    fs::create_directories((folder_.path / name).parent_path());
    std::ofstream(folder_.path / name, std::ios::binary) << text;
  }
  std::string get(const std::string &name) const {
    std::ifstream file(folder_.path / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string complaint(const std::string &name, const std::string &text) const {
    return complaintAgainstKept(folder_, name, text);
  }

  KeptFolder folder_;
};

TEST_F(KeptFolderTest, HasNoComplaintAboutTheSame) {
  put("report/a.txt", "one\ntwo\n");
  EXPECT_EQ(complaint("report/a.txt", "one\ntwo\n"), "");
}

TEST_F(KeptFolderTest, ComplainsAboutADifferenceAndLeavesTheFile) {
  put("report/a.txt", "one\ntwo\n");
  const std::string said = complaint("report/a.txt", "one\nthree\n");
  EXPECT_THAT(said, HasSubstr(folder_.path.string() + "/report/a.txt"));
  EXPECT_THAT(said, HasSubstr("kept 2: two\n"));
  EXPECT_THAT(said, HasSubstr("now  2: three\n"));
  EXPECT_EQ(get("report/a.txt"), "one\ntwo\n");
}

TEST_F(KeptFolderTest, ComplainsAboutAFileThatIsNotThere) {
  EXPECT_THAT(complaint("report/a.txt", "one\n"), HasSubstr("no file "));
  EXPECT_THAT(complaint("report/a.txt", ""), HasSubstr("no file "));
  EXPECT_FALSE(fs::exists(folder_.path / "report"));
}

TEST_F(KeptFolderTest, AcceptsANewAndAChangedFile) {
  folder_.accepts = true;
  put("report/b.txt", "before\n");
  EXPECT_EQ(complaint("report/a.txt", "one\n"), "");
  EXPECT_EQ(complaint("report/b.txt", "after\n"), "");
  EXPECT_EQ(get("report/a.txt"), "one\n");
  EXPECT_EQ(get("report/b.txt"), "after\n");
  EXPECT_THAT(filesWithoutTest(folder_, "", {}), ElementsAre("report/a.txt", "report/b.txt"));
  folder_.accepts = false;
  EXPECT_EQ(complaint("report/b.txt", "after\n"), "");
}

TEST_F(KeptFolderTest, RecordsWhatItAccepts) {
  folder_.accepts = true;
  folder_.record = folder_.path / "record";
  put("report/b.txt", "before\n");
  put("report/c.txt", "same\n");
  EXPECT_EQ(complaint("report/a.txt", "one\n"), "");
  EXPECT_EQ(complaint("report/b.txt", "after\n"), "");
  EXPECT_EQ(complaint("report/c.txt", "same\n"), "");
  EXPECT_EQ(get("record"), "new report/a.txt\nchanged report/b.txt\nsame report/c.txt\n");
}

TEST_F(KeptFolderTest, SaysWhenItCanNotWrite) {
  folder_.accepts = true;
  put("report", "in the way of the folder");
  EXPECT_THROW(complaint("report/a.txt", "one\n"), std::system_error);
}

TEST_F(KeptFolderTest, KnowsTheFilesWithoutATest) {
  put("report/a.txt", "");
  put("report/deep/b.txt", "");
  put("report/other", "");
  put("screen/c.txt", "");
  put("report/.a.txt.123", "");
  EXPECT_THAT(filesWithoutTest(folder_, "report", {"report/a.txt", "report/gone.txt"}),
              ElementsAre("report/deep/b.txt", "report/other"));
  EXPECT_THAT(filesWithoutTest(folder_, "none", {}), IsEmpty());
}

TEST(KeptFiles, ThatATestHasAreKnown) {
  const KeptFile file("harness/known.txt");
  EXPECT_EQ(file.name(), "harness/known.txt");
  EXPECT_THAT(keptFilesWithoutTest("harness"), IsEmpty());
}

TEST(KeptFiles, AreInFoldersThatATestLooksAfter) {
  std::vector<std::string> names;
  for (const fs::directory_entry &entry : fs::directory_iterator(keptFolder().path)) {
    names.push_back(entry.path().filename().string());
  }
  // The report tests and the screen tests look for files without a test in theirs.
  EXPECT_THAT(names, testing::UnorderedElementsAre("report", "screen"));
}

std::string textOf(const std::string &output, const std::string &error = "",
                   std::optional<Ending> ending = Ending{0, 0, 0}) {
  return asText(Outcome{output, error, ending});
}

TEST(OutcomeText, HasTheEndingAndBothOutputs) {
  EXPECT_EQ(textOf("a\nb\n", "c\n", Ending{10, 0, 0}), "exit status 10\nout|a|\nout|b|\nerr|c|\n");
  EXPECT_EQ(textOf("", "", Ending{-1, 11, 0}), "signal 11\n");
  EXPECT_EQ(textOf("", "", std::nullopt), "still running at the deadline\n");
}

TEST(OutcomeText, TellsAllBytesApart) {
  EXPECT_EQ(textOf(" a  \n"), "exit status 0\nout| a  |\n");
  EXPECT_EQ(textOf("\n\n"), "exit status 0\nout||\nout||\n");
  EXPECT_EQ(textOf("a"), "exit status 0\nout|a|(no newline)\n");
  EXPECT_EQ(textOf("a|(no newline)\n"), "exit status 0\nout|a|(no newline)|\n");
  EXPECT_EQ(textOf("a\tb\\t\r\n"), "exit status 0\nout|a\\tb\\\\t\\x0D|\n");
  EXPECT_EQ(textOf(std::string("\0\x1b\x7f", 3)),
            "exit status 0\nout|\\x00\\x1B\\x7F|(no newline)\n");
}

TEST(OutcomeText, ShowsCharactersAndEscapesWhatIsNone) {
  EXPECT_EQ(textOf("é€\U0001F600\n"), "exit status 0\nout|é€\U0001F600|\n");
  // Cut short, overlong, a surrogate, beyond the last one, a byte in the middle of one, a control
  // character.
  EXPECT_EQ(textOf("\xE2\x82\n"), "exit status 0\nout|\\xE2\\x82|\n");
  EXPECT_EQ(textOf("\xC0\x80\n"), "exit status 0\nout|\\xC0\\x80|\n");
  EXPECT_EQ(textOf("\xE0\x80\xAF\n"), "exit status 0\nout|\\xE0\\x80\\xAF|\n");
  EXPECT_EQ(textOf("\xED\xA0\x80\n"), "exit status 0\nout|\\xED\\xA0\\x80|\n");
  EXPECT_EQ(textOf("\xF4\x90\x80\x80\n"), "exit status 0\nout|\\xF4\\x90\\x80\\x80|\n");
  EXPECT_EQ(textOf("\xBF\n"), "exit status 0\nout|\\xBF|\n");
  EXPECT_EQ(textOf("\xC2\x85\n"), "exit status 0\nout|\\xC2\\x85|\n");
}

TEST(Difference, IsNothingForTheSame) {
  EXPECT_EQ(difference("", ""), "");
  EXPECT_EQ(difference("a\nb", "a\nb"), "");
}

TEST(Difference, IsTheLinesThatDiffer) {
  EXPECT_EQ(difference("a\nbcd\ne\n", "a\nbxd\ne\n"),
            "line 2 differs from byte 2 on\nkept 2: bcd\nnow  2: bxd\n");
  EXPECT_EQ(difference("a\nb\nc\n", "a\nc\n"), "line 2: lines are missing\nkept 2: b\n");
  EXPECT_EQ(difference("a\nc\n", "a\nb\nc\n"), "line 2: lines are too many\nnow  2: b\n");
  EXPECT_EQ(difference("a\n", ""), "line 1: lines are missing\nkept 1: a\n");
  // A repeated line is counted once.
  EXPECT_EQ(difference("a\n", "a\na\n"), "line 2: lines are too many\nnow  2: a\n");
}

TEST(Difference, ShowsWhatCanNotBeSeen) {
  EXPECT_EQ(difference("a\n", "a"),
            "line 1 differs from byte 2 on\nkept 1: a\nnow  1: a <no newline>\n");
  EXPECT_EQ(difference("a\tb\n", "a\\tb\n"),
            "line 1 differs from byte 2 on\nkept 1: a<09>b\nnow  1: a\\tb\n");
}

TEST(Difference, OfManyLinesIsCutShort) {
  std::string many;
  for (int i = 0; i < 100; i++) many += std::to_string(i) + "\n";
  const std::string text = difference(many, "");
  EXPECT_THAT(text, HasSubstr("kept 12: 11\nkept: 88 more\n"));
  EXPECT_THAT(text, Not(HasSubstr("kept 13:")));
}

}  // namespace
}  // namespace test
