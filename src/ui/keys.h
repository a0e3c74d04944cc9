// What keys do to the display's state.
#pragma once

namespace sondex {

// The text of the active filter, null when there is none.
const char *getFilter();

}  // namespace sondex
