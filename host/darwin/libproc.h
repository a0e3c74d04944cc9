// The rest of darwin/libproc.h: what only the side that answers names.
#pragma once

#include "darwin/libproc.h"

namespace darwin {

// Types of proc_listpids().
constexpr uint32_t PROC_PGRP_ONLY = 2;
constexpr uint32_t PROC_TTY_ONLY = 3;
constexpr uint32_t PROC_UID_ONLY = 4;
constexpr uint32_t PROC_RUID_ONLY = 5;
constexpr uint32_t PROC_PPID_ONLY = 6;

}  // namespace darwin
