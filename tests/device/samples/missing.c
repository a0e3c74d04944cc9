// Asks for three symbols that no library has, and could do without one of them.
#include <stdio.h>

extern int first_of_nowhere(void);
extern int second_of_nowhere;
extern int perhaps_nowhere(void) __attribute__((weak_import));

int main(void) {
  puts("not to be reached");
  return first_of_nowhere() + second_of_nowhere + (perhaps_nowhere != 0 ? perhaps_nowhere() : 0);
}
