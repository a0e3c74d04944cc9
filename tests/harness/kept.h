// Kept files: what the program wrote on a simulated device, found right and put below tests/kept/.
// A test complains about a difference. With SONDEX_ACCEPT=1 in the environment (scripts/test
// --accept) it writes the file instead, for the change to be seen in review. What a screen looks
// like as text is with screen_text.h.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "harness/run.h"

namespace test {

struct KeptFolder {
  std::filesystem::path path;
  bool accepts = false;  // a file that differs is written
  // Unless empty: a file to which a line is added for each comparison when accepting: "new",
  // "changed" or "same", a blank, and the name.
  std::filesystem::path record;
};

// That of the repository, used as the environment says.
const KeptFolder &keptFolder();

// "" when the file of this name (a path from the folder) holds `text`, or does now. Otherwise what
// differs, or that there is no such file. Throws std::system_error when a file can't be written.
std::string complaintAgainstKept(const KeptFolder &folder, const std::string &name,
                                 const std::string &text);

// The names of all files below `part` of the folder that `known` does not have. Hidden ones are
// files that are being written.
std::vector<std::string> filesWithoutTest(const KeptFolder &folder, const std::string &part,
                                          const std::set<std::string> &known);

// A kept file that a test compares with. To be made before the first test runs, at namespace scope
// or with the parameters of a test: so a file that no test has any more can be told.
class KeptFile {
 public:
  // A path from tests/kept, such as "report/iphone.txt".
  explicit KeptFile(std::string name);

  const std::string &name() const { return name_; }
  std::string complaintAbout(const std::string &text) const;

 private:
  std::string name_;
};

// The names of those files below `part` of tests/kept that are no KeptFile of this test program.
std::vector<std::string> keptFilesWithoutTest(const std::string &part);

// How a run ended, what it wrote to standard output and to standard error, without loss: a line of
// text for each line written, `out|...|` or `err|...|`, so that blanks at its end are seen. The
// last bar is followed by "(no newline)" where the output does not end with one. A backslash, a
// control byte, and a byte that belongs to no UTF-8 character are escaped.
std::string asText(const Outcome &outcome);

// The lines that differ, both ways, with their numbers. "" when nothing does.
std::string difference(std::string_view kept, std::string_view now);

}  // namespace test
