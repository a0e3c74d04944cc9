#include "inspect/process_texts.h"

#include <stdio.h>
#include <string.h>

#include "darwin/proc_info.h"
#include "text/append.h"

namespace sondex {

struct FlagText {
  uint32_t flag;
  const char *text;
};

// In the order in which they are shown, after the word size. Kept: "thcwd" has no comma.
static const FlagText kProcessFlags[] = {
    {darwin::PROC_FLAG_SYSTEM, "system,"},
    {darwin::PROC_FLAG_TRACED, "traced,"},
    {darwin::PROC_FLAG_INEXIT, "exiting,"},
    {darwin::PROC_FLAG_EXEC, "called exec,"},
    {darwin::PROC_FLAG_PPWAIT, "ppwait,"},
    {darwin::PROC_FLAG_SLEADER, "session leader,"},
    {darwin::PROC_FLAG_CTTY, "has control tty,"},
    {darwin::PROC_FLAG_CONTROLT, "has controlling terminal,"},
    {darwin::PROC_FLAG_THCWD, "thcwd"},
    {darwin::PROC_FLAG_PSUGID, "has set[ug]id,"},
    {darwin::PROC_FLAG_PC_THROTTLE, "may throttle,"},
    {darwin::PROC_FLAG_PC_SUSP, "may suspend,"},
    {darwin::PROC_FLAG_PA_THROTTLE, "is throttled,"},
    {darwin::PROC_FLAG_PA_SUSP, "is suspended,"},
    {darwin::PROC_FLAG_DARWINBG, "DarwinBG,"},
    {darwin::PROC_FLAG_EXT_DARWINBG, "Ext DarwinBG,"},
    {darwin::PROC_FLAG_IOS_APPLEDAEMON, "Daemon,"},
    {darwin::PROC_FLAG_APPLICATION, "App,"},
    {darwin::PROC_FLAG_ADAPTIVE, "Adaptive,"},
    {darwin::PROC_FLAG_ADAPTIVE_IMPORTANT, "Important,"},
    {darwin::PROC_FLAG_IMPORTANCE_DONOR, "Donor,"},
    {darwin::PROC_FLAG_SUPPRESSED, "Supp,"},
};

// By pbi_status.
static const char *const kStatusTexts[] = {nullptr,    "forking", "runnable",
                                           "sleeping", "stopped", "zombie"};

// By the number of the role, from -1 on.
constexpr int32_t kFirstRole = -1;
static const char *const kRoleTexts[] = {"reniced",    "unspecified", "foreground",
                                         "background", "control",     "graphics",
                                         "throttle",   "non-UI",      "default"};

const char *statusToText(int32_t status) {
  constexpr int32_t kEnd = sizeof kStatusTexts / sizeof kStatusTexts[0];
  return status >= 1 && status < kEnd ? kStatusTexts[status] : "unknown";
}

const char *print_flags(uint32_t flags) {
  static char text[180];  // too small for all flags at once: the last ones are cut off
  text[0] = '\0';
  append(text, sizeof text, "%s", (flags & darwin::PROC_FLAG_LP64) != 0 ? "64-bit," : "32-bit,");
  for (const FlagText &row : kProcessFlags) {
    if ((flags & row.flag) != 0) append(text, sizeof text, "%s", row.text);
  }
  char *last = text + strlen(text) - 1;
  if (*last == ',') *last = '\0';
  return text;
}

const char *policyToText(int32_t role) {
  constexpr int32_t kEnd = kFirstRole + int32_t{sizeof kRoleTexts / sizeof kRoleTexts[0]};
  return role >= kFirstRole && role < kEnd ? kRoleTexts[role - kFirstRole] : "Unknown";
}

const char *print_thread_flags(uint32_t flags) {
  static char text[20];
  const bool others = (flags & ~uint32_t{darwin::TH_FLAGS_SWAPPED | darwin::TH_FLAGS_IDLE}) != 0;
  snprintf(text, sizeof text, "%s%s%s", (flags & darwin::TH_FLAGS_SWAPPED) != 0 ? "swapped " : "",
           (flags & darwin::TH_FLAGS_IDLE) != 0 ? "idle" : "", others ? "?" : "");
  return text;
}

}  // namespace sondex
