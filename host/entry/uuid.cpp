// Texts of universally unique identifiers, as the device's C library writes them.
#include "darwin/uuid.h"

void darwin::uuid_unparse(const uint8_t uuid[UUID_SIZE], char text[UUID_STRING_SIZE]) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  for (int i = 0; i < UUID_SIZE; i++) {
    if (i == 4 || i == 6 || i == 8 || i == 10) *text++ = '-';
    *text++ = kDigits[uuid[i] >> 4];
    *text++ = kDigits[uuid[i] & 0x0F];
  }
  *text = '\0';
}
