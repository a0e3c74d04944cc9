#include "screens/network_summary.h"

namespace sondex {

const NetworkSample *sample_networks() {
  return nullptr;
}

void showWiFiDetails() {}

}  // namespace sondex
