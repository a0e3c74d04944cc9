// Answers that a machine can't give: calls that the unit tests catch when they are linked.
#pragma once

#include <functional>

namespace wrapped_calls {

// In place of proc_pidfdinfo while it is set; null lets the call through.
extern std::function<int(void *buffer, int size)> descriptorInfo;

}  // namespace wrapped_calls
