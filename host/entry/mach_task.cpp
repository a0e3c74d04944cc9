// Mach calls about tasks. No task's port is given out here, so that no name is one.
#include "darwin/mach_task.h"

darwin::kern_return_t darwin::task_info(task_name_t, task_flavor_t, task_info_t,
                                        mach_msg_type_number_t *) {
  return MACH_SEND_INVALID_DEST;
}
