#include "host/simulator/calls.h"

namespace host::simulator {

const std::array<CallForm, kQuestions> kCallForms = {{
    {"uname", ""},
    {"proc_listpids", ""},
    {"proc_pidinfo", "PROC_PIDTASKALLINFO"},
    {"proc_pidinfo", "PROC_PIDTBSDINFO"},
    {"proc_pidinfo", "PROC_PIDPATHINFO"},
    {"proc_pidinfo", "PROC_PIDWORKQUEUEINFO"},
    {"proc_pidinfo", "PROC_PIDLISTTHREADS"},
    {"proc_pidinfo", "PROC_PIDTHREADINFO"},
    {"proc_pidinfo", "PROC_PIDLISTTHREADIDS"},
    {"proc_pidinfo", "PROC_PIDTHREADID64INFO"},
    {"proc_pidinfo", "PROC_PIDCOALITIONINFO"},
    {"proc_pidinfo", "PROC_PIDLISTFDS"},
    {"proc_pidinfo", "PROC_PIDREGIONPATHINFO"},
    {"proc_pidfdinfo", "PROC_PIDFDVNODEPATHINFO"},
    {"proc_pidfdinfo", "PROC_PIDFDSOCKETINFO"},
    {"proc_pidfdinfo", "PROC_PIDFDPSEMINFO"},
    {"proc_pidfdinfo", "PROC_PIDFDPSHMINFO"},
    {"proc_pidfdinfo", "PROC_PIDFDPIPEINFO"},
    {"proc_pidfdinfo", "PROC_PIDFDKQUEUEINFO"},
    {"proc_pidfdinfo", "PROC_PIDFDKQUEUE_EXTINFO"},
    {"proc_pidfdinfo", "PROC_PIDFDCHANNELINFO"},
    {"proc_pid_rusage", ""},
    {"csops", "CS_OPS_STATUS"},
    {"csops", "CS_OPS_BLOB"},
    {"sandbox_check", ""},
    {"sandbox_container_path_for_pid", ""},
    {"process_policy", ""},
    {"memorystatus_control", "MEMORYSTATUS_CMD_GET_PRIORITY_LIST"},
    {"memorystatus_control", "MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES"},
    {"memorystatus_control", "MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES"},
    {"memorystatus_control", "MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES"},
    {"memorystatus_get_level", ""},
    {"host_info", "HOST_BASIC_INFO"},
    {"host_statistics64", "HOST_VM_INFO64"},
    {"host_processors", ""},
    {"processor_info", "PROCESSOR_CPU_LOAD_INFO"},
    {"sysctl", "kern.boottime"},
    {"sysctl", "vm.loadavg"},
    {"sysctl", "vm.swapusage"},
    {"sysctl", "kern.procargs2"},
    {"sysctl", "net.route.iflist2"},
    {"ioctl", "SIOCGA80211"},
    {"ntstat", "connect"},
    {"ntstat", "subscribe"},
    {"ntstat", "sources"},
    {"MGCopyAnswerWithError", ""},
    {"IOPSCopyPowerSourcesInfo", ""},
    {"vm_pressure_monitor", ""},
    {"kqueue", ""},
    {"kill", ""},
    {"task_for_pid", ""},
    {"task_name_for_pid", ""},
    {"host_get_special_port", ""},
    {"act_get_state", ""},
    {"mach_vm_read_overwrite", ""},
    {"mach_vm_page_range_query", ""},
    {"OSKextCopyLoadedKextInfo", ""},
    {"stackshot_capture_with_config", ""},
}};

QuestionSet questionsOf(std::string_view call, std::string_view form) {
  QuestionSet found = 0;
  for (size_t i = 0; i < kCallForms.size(); ++i) {
    const CallForm &row = kCallForms[i];
    if (row.call == call && (form.empty() || row.form == form)) found |= QuestionSet{1} << i;
  }
  return found;
}

}  // namespace host::simulator
