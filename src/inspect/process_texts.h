// Words for what the kernel's process and thread records hold as numbers and bits. Each text in a
// buffer stands until the next call of the same converter, whichever thread makes it.
#pragma once

#include <cstdint>

namespace sondex {

// The word for a process status (pbi_status); "unknown" for one that has none. Constant text.
const char *statusToText(int32_t status);

// The process flags (pbi_flags), word size first, with commas between them. Never empty.
const char *print_flags(uint32_t flags);

// The word for a task's role; "Unknown" for one that has none. Constant text. Nothing calls it yet.
const char *policyToText(int32_t role);

// The thread flags (pth_flags): empty for none, "?" for those without a word. Nothing calls it yet.
const char *print_thread_flags(uint32_t flags);

}  // namespace sondex
