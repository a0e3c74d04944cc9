// A screen as a picture for documents: SVG whose text can be selected, light on its own dark
// ground, so that it is read on a dark page and on a light one.
#pragma once

#include <string>

#include "harness/screen_text.h"

namespace test {

// Empty rows at the end are left out. `title` says what the picture shows to those who can't see
// it.
std::string asPicture(const Screen &screen, const std::string &title);

}  // namespace test
