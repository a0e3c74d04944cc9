// Texts of universally unique identifiers beside the platform's.
#include "darwin/uuid.h"

#include "same.h"

#include <uuid/uuid.h>

static_assert(sizeof(uuid_t) == darwin::UUID_SIZE);
static_assert(sizeof(uuid_string_t) == darwin::UUID_STRING_SIZE);
SAME_FUNCTION(uuid_unparse);
