// Ten thousand random keys, escape sequences cut in the middle among them: the program still
// answers, and leaves the terminal as it was.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

#include "harness/configuration_file.h"
#include "harness/helper.h"
#include "harness/run.h"
#include "harness/stepped_device.h"
#include "harness/terminal.h"

namespace test {
namespace {

constexpr size_t kKeys = 10'000;
// Less than a terminal keeps for a program that does not read.
constexpr size_t kKeysAtOnce = 200;
// A prompt ends at so many keys.
constexpr size_t kLongestAnswer = 80;

// Signals and limits only go to processes that are simulated.
enum class Signals { sent, left };

// Keys for the list. Enter comes only where something asks for it: in the list itself it opens the
// details of a process, where most of what follows would cost a second each.
class RandomKeys {
 public:
  RandomKeys(unsigned seed, Signals signals) : random_(seed), signals_(signals) {}

  std::string next() {
    const int kind = number(100);
    if (kind < 55) return oneOf("0123456789!-+ bcCdDfFiImMnNpPrRsSxXyYaBcDeEghHjlLvVwWzZ\t");
    if (kind < 75) return arrow();
    if (kind < 80) return cutSequence();
    if (kind < 85) return anyByte();
    if (kind < 90) return "/" + answer();
    if (kind < 92) return "u" + answer();
    if (kind < 94) return signals_ == Signals::sent ? signal() : "F";
    if (kind < 96) return screen("?");
    if (kind < 97) return signals_ == Signals::sent ? screen("G") : "I";
    return oneOf("\x04\x05\x0e\x10");
  }

 private:
  int number(int below) { return std::uniform_int_distribution<int>(0, below - 1)(random_); }
  std::string oneOf(std::string_view keys) {
    return std::string(1, keys[static_cast<size_t>(number(static_cast<int>(keys.size())))]);
  }
  std::string arrow() { return std::string("\x1b") + oneOf("[O") + oneOf("ABCD"); }
  // What follows is taken as its end.
  std::string cutSequence() { return number(2) == 0 ? "\x1b" : std::string("\x1b") + oneOf("[O"); }
  // Not one that ends or stops the program: Ctrl-C, Ctrl-\, Ctrl-Z, Q; nor one that begins a
  // prompt, a screen, a signal, or changes what the terminal does.
  std::string anyByte() {
    for (;;) {
      const char byte = static_cast<char>(number(256));
      constexpr std::string_view kLeftOut("\0\x03\n\r\x11\x12\x13\x16\x1a\x1c\x0f/uUJkKtTgG?qQ",
                                          24);
      if (kLeftOut.find(byte) == std::string_view::npos) return std::string(1, byte);
    }
  }
  std::string word(size_t length) {
    std::string text;
    while (text.size() < length) text += oneOf("abcdefgh0123456789-%\x7f\xc3 ");
    return text;
  }
  // Mostly short; sometimes so long that it ends the prompt by itself.
  std::string answer() {
    return number(20) == 0 ? word(kLongestAnswer) : word(static_cast<size_t>(number(8))) + "\n";
  }
  // Whether these ask, and what for, depends on the selection. In a prompt they are an answer that
  // ends it, of no process or to be sure; in the list they switch something and do nothing.
  std::string signal() {
    const std::string key = oneOf("tTKJ");
    return key + (key == "K" ? oneOf("yYn") : "1") + std::string(kLongestAnswer - 1, 'e');
  }
  // Each key that does not leave the screen costs a second there.
  std::string screen(const char *key) { return key + (number(10) == 0 ? oneOf("xy ") : "") + "\n"; }

  std::mt19937 random_;
  Signals signals_;
};

TerminalOptions usualTerminal(Environment environment = {}) {
  TerminalOptions options;
  options.columns = 132;
  options.rows = 40;
  options.environment = std::move(environment);
  return options;
}

void pressThem(Terminal &terminal, RandomKeys &keys) {
  for (size_t pressed = 0; pressed < kKeys;) {
    std::string some;
    while (some.size() < kKeysAtOnce) some += keys.next();
    terminal.press(some);
    pressed += some.size();
    ASSERT_TRUE(
        terminal.waitFor([&] { return terminal.hasEnded() || terminal.unreadKeys() == 0; }));
    ASSERT_FALSE(terminal.hasEnded()) << "after " << pressed << " keys\n" << terminal.text();
  }
}

// Out of whatever is open, the list answers.
void expectAnswer(Terminal &terminal) {
  // The end of a sequence.
  terminal.press("\x1b[A");
  ASSERT_TRUE(terminal.waitFor([&] { return terminal.unreadKeys() == 0; }));
  terminal.press("/no process is called so\n");
  EXPECT_EQ(terminal.awaitText("No processes match no process is called so"), "");
}

void expectQuit(Terminal &terminal) {
  terminal.press("q");
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value()) << terminal.text();
  EXPECT_TRUE(ending->exitedWith(0)) << *ending << '\n' << terminal.written();
  EXPECT_TRUE(sameModes(terminal.modes(), terminal.modesBefore()));
}

TEST(RandomKeys, OnASimulatedDevice) {
  const ConfigurationFile file;
  const SteppedDevice device("iphone");
  Terminal terminal(usualTerminal(device.environment()));
  ASSERT_EQ(terminal.awaitText("COMMAND"), "");
  RandomKeys keys(20240305, Signals::sent);
  ASSERT_NO_FATAL_FAILURE(pressThem(terminal, keys));
  ASSERT_NO_FATAL_FAILURE(expectAnswer(terminal));
  expectQuit(terminal);
}

TEST(RandomKeys, OnThisMachineWhileProcessesComeAndGo) {
  const ConfigurationFile file;
  const Helper churn({"churn", "100", "600"});
  Terminal terminal(usualTerminal());
  ASSERT_EQ(terminal.awaitText("COMMAND"), "");
  RandomKeys keys(20240306, Signals::left);
  ASSERT_NO_FATAL_FAILURE(pressThem(terminal, keys));
  ASSERT_NO_FATAL_FAILURE(expectAnswer(terminal));
  expectQuit(terminal);
}

}  // namespace
}  // namespace test
