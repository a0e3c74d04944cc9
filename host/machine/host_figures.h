// Questions about the machine as a whole: its processors, its memory, its load.
#pragma once

#include "darwin/mach_host.h"
#include "darwin/sysctl.h"
#include "host/errno.h"

namespace host {

class HostQuestions {
 public:
  virtual Errno hostBasicInfo(darwin::host_basic_info &) { return darwin::DARWIN_ENOTSUP; }
  virtual Errno virtualMemory(darwin::vm_statistics64 &) { return darwin::DARWIN_ENOTSUP; }
  virtual Errno processorCount(unsigned int &) { return darwin::DARWIN_ENOTSUP; }
  virtual Errno processorLoad(unsigned int /*processor*/, darwin::processor_cpu_load_info &) {
    return darwin::DARWIN_ENOTSUP;
  }
  virtual Errno bootTime(darwin::timeval &) { return darwin::DARWIN_ENOTSUP; }
  virtual Errno loadAverage(darwin::loadavg &) { return darwin::DARWIN_ENOTSUP; }
  virtual Errno swapUsage(darwin::xsw_usage &) { return darwin::DARWIN_ENOTSUP; }

 protected:
  ~HostQuestions() = default;
};

HostQuestions &hostFigures();

}  // namespace host
