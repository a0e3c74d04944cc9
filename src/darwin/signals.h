// Signal numbers as the kernel counts them: for signals that are sent to or read from the processes
// watched. Signals of the program itself go by the C library's names.
#pragma once

namespace darwin {

constexpr int DARWIN_SIGHUP = 1;
constexpr int DARWIN_SIGINT = 2;
constexpr int DARWIN_SIGQUIT = 3;
constexpr int DARWIN_SIGILL = 4;
constexpr int DARWIN_SIGTRAP = 5;
constexpr int DARWIN_SIGABRT = 6;
constexpr int DARWIN_SIGEMT = 7;
constexpr int DARWIN_SIGFPE = 8;
constexpr int DARWIN_SIGKILL = 9;
constexpr int DARWIN_SIGBUS = 10;
constexpr int DARWIN_SIGSEGV = 11;
constexpr int DARWIN_SIGSYS = 12;
constexpr int DARWIN_SIGPIPE = 13;
constexpr int DARWIN_SIGALRM = 14;
constexpr int DARWIN_SIGTERM = 15;
constexpr int DARWIN_SIGURG = 16;
constexpr int DARWIN_SIGSTOP = 17;
constexpr int DARWIN_SIGTSTP = 18;
constexpr int DARWIN_SIGCONT = 19;
constexpr int DARWIN_SIGCHLD = 20;
constexpr int DARWIN_SIGTTIN = 21;
constexpr int DARWIN_SIGTTOU = 22;
constexpr int DARWIN_SIGIO = 23;
constexpr int DARWIN_SIGXCPU = 24;
constexpr int DARWIN_SIGXFSZ = 25;
constexpr int DARWIN_SIGVTALRM = 26;
constexpr int DARWIN_SIGPROF = 27;
constexpr int DARWIN_SIGWINCH = 28;
constexpr int DARWIN_SIGINFO = 29;
constexpr int DARWIN_SIGUSR1 = 30;
constexpr int DARWIN_SIGUSR2 = 31;

}  // namespace darwin
