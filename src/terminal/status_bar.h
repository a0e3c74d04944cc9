// The status bar: one line on the bottom row that shows a message for a number of redraws. Any
// thread may set it; a text caught half-written for one redraw is accepted.
#pragma once

#include <stdint.h>

namespace sondex {

// Shows `text` (not null, cut to 259 bytes) on the next `count` redraws. A negative count never
// runs out.
void setStatusBar(const char *text, int32_t count);

// The same for a text that has to be seen: what each frame says anew does not replace it, as long
// as it has not run out. `count` is above 0.
void insistOnStatus(const char *text, int32_t count);

// The same for what a frame says anew each time.
void offerStatus(const char *text, int32_t count);

// The present text, empty when there is none. In a buffer that the next call overwrites; drawing
// thread only.
const char *getStatusBar();

void clearStatusBar();

// Whether there is a text, and it will run out.
bool isStatusPassing();

// Draws the bar if there is a text, and counts the redraw. Full-screen mode only; called once per
// redraw.
void printStatusBar();

// Replaces the banner text. The text is not copied: the caller keeps it alive. Nothing calls it
// yet.
void setMessage(const char *text);

}  // namespace sondex
