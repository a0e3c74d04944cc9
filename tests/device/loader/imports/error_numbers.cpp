#include "imports/error_numbers.h"

#include <stdio.h>
#include <string.h>

#include <cerrno>

#include "host/entry/errors.h"
#include "imports/calls.h"

namespace loader {

namespace {

struct Number {
  int darwin;
  int native;
};

// Those that differ.
constexpr Number kNumbers[] = {
    {11, EDEADLK},         {35, EAGAIN},          {36, EINPROGRESS},
    {37, EALREADY},        {38, ENOTSOCK},        {39, EDESTADDRREQ},
    {40, EMSGSIZE},        {41, EPROTOTYPE},      {42, ENOPROTOOPT},
    {43, EPROTONOSUPPORT}, {44, ESOCKTNOSUPPORT}, {45, ENOTSUP},
    {46, EPFNOSUPPORT},    {47, EAFNOSUPPORT},    {48, EADDRINUSE},
    {49, EADDRNOTAVAIL},   {50, ENETDOWN},        {51, ENETUNREACH},
    {52, ENETRESET},       {53, ECONNABORTED},    {54, ECONNRESET},
    {55, ENOBUFS},         {56, EISCONN},         {57, ENOTCONN},
    {58, ESHUTDOWN},       {59, ETOOMANYREFS},    {60, ETIMEDOUT},
    {61, ECONNREFUSED},    {62, ELOOP},           {63, ENAMETOOLONG},
    {64, EHOSTDOWN},       {65, EHOSTUNREACH},    {66, ENOTEMPTY},
    {68, EUSERS},          {69, EDQUOT},          {70, ESTALE},
    {71, EREMOTE},         {77, ENOLCK},          {78, ENOSYS},
    {84, EOVERFLOW},       {89, ECANCELED},       {90, EIDRM},
    {91, ENOMSG},          {92, EILSEQ},          {94, EBADMSG},
    {95, EMULTIHOP},       {96, ENODATA},         {97, ENOLINK},
    {98, ENOSR},           {99, ENOSTR},          {100, EPROTO},
    {101, ETIME},          {102, EOPNOTSUPP},     {104, ENOTRECOVERABLE},
    {105, EOWNERDEAD},
};

// From here on the two sides count differently.
constexpr int kFirstOther = 35;
// Stands for what the device has no number for.
constexpr int kNoNumber = 5;

thread_local int g_error = 0;

}  // namespace

int darwinErrno(int native) noexcept {
  for (const Number &number : kNumbers) {
    if (number.native == native) return number.darwin;
  }
  return native < kFirstOther ? native : kNoNumber;
}

int nativeErrno(int darwin) noexcept {
  for (const Number &number : kNumbers) {
    if (number.darwin == darwin) return number.native;
  }
  return darwin;
}

int *errorAddress() noexcept {
  if (errno != 0) {
    g_error = darwinErrno(errno);
    errno = 0;
  }
  return &g_error;
}

namespace {

char *textOf(int number) {
  return strerror(nativeErrno(number));
}

void printError(const char *prefix) {
  errno = nativeErrno(*errorAddress());
  perror(prefix);
  errno = 0;
}

}  // namespace

std::span<const Import> errors() {
  static const Import table[] = {
      call("__error", &errorAddress),
      call("strerror", &textOf),
      call("perror", &printError),
  };
  return table;
}

}  // namespace loader

// In the place of what the native program has, which keeps both kinds of numbers in one errno.
namespace host {

void setErrno(Errno error) noexcept {
  *loader::errorAddress() = error;
}

int nativeErrno(Errno error) noexcept {
  return loader::nativeErrno(error);
}

}  // namespace host
