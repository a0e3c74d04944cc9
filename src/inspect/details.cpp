#include "inspect/details.h"

namespace sondex {

void showProcessDetails(ProcessRecord *, ProcessRecord *) {}

}  // namespace sondex
