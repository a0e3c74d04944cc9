// Holds back standard error while the full screen owns the same terminal, so that messages don't
// tear the screen, or while the same is said of process after process, and writes it out
// afterwards: each distinct line once, with how often it came. Any thread may call these: one that
// closes the screen does so beside the refresh loop.
#pragma once

namespace sondex {

// Starts holding when standard error and standard output are the same terminal; otherwise does
// nothing.
void holdStandardError();

// Starts holding wherever standard error goes.
void gatherStandardError();

// Takes in what was written since the last call; nothing while another thread is at it. Called once
// a refresh, and often enough while all processes are sampled: what there is no room for is lost.
void collectStandardError();

// Ends the holding and writes out what was collected. Nothing happens when nothing is held.
void releaseStandardError();

}  // namespace sondex
