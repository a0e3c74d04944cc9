// Writes to a pointer that is constant once the loader has set it.
#include <stdio.h>
#include <string.h>

static size_t (*const g_constant[])(const char *) = {strlen};

int main(void) {
  printf("%d\n", (int)g_constant[0]("before"));
  fflush(stdout);
  *(volatile unsigned long *)&g_constant[0] = 0;
  puts("not to be reached");
  return 0;
}
