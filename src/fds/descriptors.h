// What is shown of a descriptor that is no socket: files, semaphores, shared memory and
// kqueues. Each printer writes one piece of text without a newline and returns what output
// returned.
#pragma once

#include <cstdint>

#include "darwin/proc_info.h"

namespace sondex {

// Path and offset; "?????" for null.
int print_vnode_info_path(const darwin::vnode_fdinfowithpath *info);

int print_sem_info(const darwin::psem_fdinfo *info);

// Name and mapped address.
int print_shm_info(const darwin::pshm_fdinfo *info);

// The first of a kqueue's events. Nothing calls it yet.
int print_kqueue_info(const darwin::kevent_extinfo *events);

// The name of a kqueue filter. One that has none gets a text with its number and a newline, in a
// buffer that the next call overwrites.
const char *evfiltToText(int32_t filter);

}  // namespace sondex
