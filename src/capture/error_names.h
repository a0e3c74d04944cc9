// The names by which device files call the numbers of errors.
#pragma once

namespace sondex {

// The name of an error that a call of Darwin's left in errno: of one that files do not know, that
// of an I/O error. Constant text.
const char *nameOfError(int error);

}  // namespace sondex
