// The codes of keys: bytes as a terminal sends them, and curses' own numbers beyond a byte. Written
// down here so that a key means the same whichever curses the program runs with.
#pragma once

namespace sondex {

constexpr int kEnter = 10;
constexpr int kRepaint = 12;  // Ctrl-L
constexpr int kCarriageReturn = 13;
constexpr int kEscape = 27;

constexpr int kDown = 258;
constexpr int kUp = 259;
constexpr int kLeft = 260;
constexpr int kRight = 261;
constexpr int kHome = 262;
constexpr int kPageDown = 338;
constexpr int kPageUp = 339;
constexpr int kEnd = 360;
constexpr int kShiftedLeft = 393;
constexpr int kShiftedRight = 402;

}  // namespace sondex
