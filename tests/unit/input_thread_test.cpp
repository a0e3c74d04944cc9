#include "control/input_thread.h"

#include "control/signals.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "control/keys.h"
#include "terminal/drawing_lock.h"
#include "terminal/ending.h"
#include "terminal/lost_screen.h"
#include "tests/unit/display_state.h"
#include "tests/unit/pseudo_terminal.h"
#include "tests/unit/wake_pipe.h"

namespace {

using namespace sondex;
using testing::ExitedWithCode;
using testing::HasSubstr;

class InputThread : public testing::Test {
 protected:
  InputThread() {
    store(wantCurses, 1);
    store(cursesFailed, 0);
    store(y, 24);
    store(g_Row, 5);
  }

  // Lets the thread's procedure read these bytes to their end; answers what it wrote to the pipe.
  std::string wakesFor(std::string_view bytes) {
    const TypedInput input(bytes);
    EXPECT_EQ(interactiveThread(nullptr), nullptr);
    EXPECT_EQ(TypedInput::left(), "");
    return pipe.taken();
  }

  int32_t rowAfter(std::string_view bytes) {
    store(g_Row, 5);
    wakesFor(bytes);
    return load(g_Row);
  }

  int32_t columnAfter(std::string_view bytes) {
    Perspective *perspective = getCurrentPerspective();
    store(perspective->selectedColumn, 8);
    wakesFor(bytes);
    return load(perspective->selectedColumn);
  }

  DisplayStateGuard guard;
  WakePipe pipe;
};

TEST_F(InputThread, EndsWithItsInput) {
  EXPECT_EQ(wakesFor(""), "");
}

TEST_F(InputThread, EachKeyIsAppliedAndWakesOnce) {
  EXPECT_EQ(wakesFor("d"), "x");
  EXPECT_EQ(load(g_Delta), 1);
  EXPECT_EQ(wakesFor("dIz"), "xxx");
  EXPECT_EQ(load(g_Delta), 0);
  EXPECT_EQ(load(g_IrixMode), 1);
}

TEST_F(InputThread, CursorKeysComeInTwoForms) {
  for (const std::string lead : {"\x1b[", "\x1bO"}) {
    EXPECT_EQ(rowAfter(lead + "A"), 4);
    EXPECT_EQ(rowAfter(lead + "B"), 6);
    EXPECT_EQ(columnAfter(lead + "C"), 9);
    EXPECT_EQ(columnAfter(lead + "D"), 7);
    EXPECT_EQ(wakesFor(lead + "A"), "x") << "one for the whole sequence";
    EXPECT_EQ(rowAfter(lead + "A" + lead + "A"), 3);
  }
}

TEST_F(InputThread, LettersOfCursorKeysAloneAreSwallowed) {
  for (const std::string letter : {"A", "B", "C", "D"}) {
    EXPECT_EQ(wakesFor(letter), "") << letter;
    EXPECT_EQ(rowAfter(letter), 5);
    EXPECT_EQ(columnAfter(letter), 8);
  }
  EXPECT_EQ(load(g_Delta), 0) << "D is no d";
}

TEST_F(InputThread, BracketAloneIsSwallowedButWakes) {
  EXPECT_EQ(wakesFor("["), "x");
  EXPECT_EQ(wakesFor("O"), "x");
  EXPECT_EQ(rowAfter("[A"), 5);
  EXPECT_EQ(rowAfter("OA"), 5);
}

TEST_F(InputThread, EscapeKeepsTheLoopAsleepUntilABracket) {
  EXPECT_EQ(wakesFor("\x1b"), "");
  EXPECT_EQ(wakesFor("\x1b"
                     "d"),
            "")
      << "handled, not woken";
  EXPECT_EQ(load(g_Delta), 1);
  EXPECT_EQ(wakesFor("\x1b"
                     "ddd"),
            "");
  EXPECT_EQ(wakesFor("\x1b"
                     "d["),
            "")
      << "the bracket now waits for its letter";
  EXPECT_EQ(wakesFor("\x1b"
                     "d[A"),
            "x");
  EXPECT_EQ(wakesFor("\x1b\x1b[A"), "x");
}

TEST_F(InputThread, EscapeWithinACursorKeysSequenceStands) {
  EXPECT_EQ(rowAfter("\x1b[\x1b"
                     "A"),
            4);
  EXPECT_EQ(wakesFor("\x1b[\x1b"
                     "A"),
            "")
      << "until the next bracket";
  EXPECT_EQ(rowAfter("\x1b[\x1b"
                     "A[A"),
            3);
}

TEST_F(InputThread, LetterBetweenBracketAndCursorLetterIsAKey) {
  EXPECT_EQ(wakesFor("\x1b[d"), "");
  EXPECT_EQ(load(g_Delta), 1);
  EXPECT_EQ(rowAfter("\x1b[1;2A"), 4) << "what is unknown in between is passed over";
}

TEST_F(InputThread, CarriageReturnIsEnter) {
  store(wantCurses, 0);  // so that the details are a report
  ProcessRecord *table = allocateProcessTable(1);
  table->taskAllInfo.pbsd.pbi_pid = INT32_MAX;
  table->displayed = 1;
  store(g_previous_process_information, table);
  store(previous_num_procs, 1);
  setDrawnTable({table, 1});
  for (const char *key : {"\r", "\n"}) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    noteKeysAreSeen();
    EXPECT_EQ(wakesFor(key), "x");
    testing::internal::GetCapturedStderr();
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("Process: 2147483647\t"));
  }
}

TEST_F(InputThread, EveryByteIsHarmless) {
  std::string bytes;
  for (int byte = 128; byte < 256; byte++) bytes += static_cast<char>(byte);
  EXPECT_EQ(wakesFor(bytes), std::string(128, 'x'));
  EXPECT_EQ(load(g_Row), 5);
}

TEST_F(InputThread, FullPipeDoesNotStopIt) {
  while (write(g_pipe[1], "y", 1) == 1) continue;
  wakesFor(
      "dd"
      "d");
  EXPECT_EQ(load(g_Delta), 1);
}

TEST_F(InputThread, ReadsATerminal) {
  PseudoTerminal terminal(24, 80);
  termios modes = terminal.modes();
  modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  ASSERT_EQ(tcsetattr(terminal.programEnd(), TCSANOW, &modes), 0);
  const int before = dup(STDIN_FILENO);
  ASSERT_GE(before, 0);
  EXPECT_EXIT(
      {
        terminal.type("\x1bOAdq");
        dup2(terminal.programEnd(), STDIN_FILENO);
        interactiveThread(nullptr);
        _exit(load(g_Row) == 4 && load(g_Delta) == 1 && reasonToEnd() == kEndByKey ? 7 : 1);
      },
      ExitedWithCode(7), "");
  close(before);
}

TEST_F(InputThread, QuitReadsNoFurther) {
  for (const std::string bytes : {"qdd", "\x1bqdd"}) {
    EXPECT_EXIT(
        {
          const TypedInput input(bytes);
          interactiveThread(nullptr);
          const bool asked = reasonToEnd() == kEndByKey;
          _exit(asked && TypedInput::left() == "dd" && load(g_Delta) == 0 ? 7 : 1);
        },
        ExitedWithCode(7), "");
  }
}

TEST_F(InputThread, LeavesTheKeysOfAReportAlone) {
  store(wantCurses, 0);
  store(cursesFailed, 1);
  const TypedInput input("d");
  EXPECT_EQ(interactiveThread(nullptr), nullptr);
  EXPECT_EQ(TypedInput::left(), "d");
  EXPECT_EQ(load(g_Delta), 0);
}

TEST_F(InputThread, EndsWithTheProgramBeforeThereIsAScreen) {
  store(cursesFailed, 1);
  EXPECT_EXIT(
      {
        askForEnd(kEndByExit);
        const TypedInput input("d");
        interactiveThread(nullptr);
        _exit(TypedInput::left() == "d" ? 7 : 1);
      },
      ExitedWithCode(7), "");
}

TEST_F(InputThread, CtrlCSaysGoodbyeAndExits) {
  store(cursesFailed, 1);  // no screen to close
  EXPECT_EXIT(
      {
        sighandler(SIGINT);
        endIfInterrupted();
        _exit(1);
      },
      ExitedWithCode(0),
      "^Pressing 'Q' would have been just as efficient as CTRL-C, thank you\\.\n$");
}

TEST_F(InputThread, OtherReasonsExitWithoutAWord) {
  store(cursesFailed, 1);
  for (const int32_t reason : {kEndByKey, kEndByExit}) {
    EXPECT_EXIT(
        {
          askForEnd(reason);
          endIfInterrupted();
          _exit(1);
        },
        ExitedWithCode(0), "^$");
  }
}

TEST_F(InputThread, CtrlCInPlainModeIsNobodysBusiness) {
  store(wantCurses, 0);
  sighandler(SIGINT);
  EXPECT_EQ(reasonToEnd(), 0);
  EXPECT_EQ(pipe.taken(), "");
  endIfInterrupted();
}

class EndingSignal : public InputThread, public testing::WithParamInterface<int> {};

TEST_P(EndingSignal, EndsTheProgramOnceTheLoopSeesIt) {
  store(cursesFailed, 1);
  EXPECT_EXIT(
      {
        handleSignals();
        raise(GetParam());
        if (reasonToEnd() != GetParam() || pipe.taken() != "x") _exit(1);
        endIfInterrupted();
        _exit(1);
      },
      testing::KilledBySignal(GetParam()), "^$");
}

TEST_P(EndingSignal, ThatWasIgnoredStaysSo) {
  EXPECT_EXIT(
      {
        signal(GetParam(), SIG_IGN);
        handleSignals();
        raise(GetParam());
        _exit(reasonToEnd() == 0 ? 7 : 1);
      },
      ExitedWithCode(7), "");
}

INSTANTIATE_TEST_SUITE_P(Signal, EndingSignal,
                         testing::Values(SIGHUP, SIGQUIT, SIGABRT, SIGPIPE, SIGALRM, SIGTERM,
                                         SIGUSR1, SIGUSR2, SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF),
                         [](const auto &row) { return std::string(sigabbrev_np(row.param)); });

class ScreenSignal : public InputThread, public testing::WithParamInterface<int> {};

TEST_P(ScreenSignal, WakesTheLoopToTakeTheScreenBack) {
  EXPECT_EXIT(
      {
        handleSignals();
        raise(GetParam());
        _exit(hasLostScreen() && pipe.taken() == "x" ? 7 : 1);
      },
      ExitedWithCode(7), "");
}

INSTANTIATE_TEST_SUITE_P(Signal, ScreenSignal, testing::Values(SIGWINCH, SIGCONT),
                         [](const auto &row) { return std::string(sigabbrev_np(row.param)); });

}  // namespace
