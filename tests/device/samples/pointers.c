// Pointers that only a loader can set: to the program's own data and code, to libraries' data and
// functions with and without a distance, to what is missing; and what runs before main.
#include <stdio.h>
#include <string.h>

extern int perhaps_nowhere(void) __attribute__((weak_import));

static char g_text[] = "own text";
static const char *g_own[] = {g_text, g_text + 4, "constant text"};
static size_t (*const g_lengths[])(const char *) = {strlen, strlen};
static FILE *volatile *g_output = &__stdoutp;
static FILE *volatile *g_behindOutput = &__stdoutp + 1;
static int g_initialised;
static int g_argumentsSeen;
static char g_zeros[40000];

// 3001 of them take several pages.
#define TEN(entry) entry, entry, entry, entry, entry, entry, entry, entry, entry, entry
#define HUNDRED(entry)                                                                            \
  TEN(entry), TEN(entry), TEN(entry), TEN(entry), TEN(entry), TEN(entry), TEN(entry), TEN(entry), \
      TEN(entry), TEN(entry)
#define THOUSAND(entry)                                                                           \
  HUNDRED(entry), HUNDRED(entry), HUNDRED(entry), HUNDRED(entry), HUNDRED(entry), HUNDRED(entry), \
      HUNDRED(entry), HUNDRED(entry), HUNDRED(entry), HUNDRED(entry)
static const char *g_many[] = {THOUSAND(g_text), THOUSAND(g_text), THOUSAND(g_text), g_text + 4};

__attribute__((constructor)) static void first(int argc, char **argv) {
  g_initialised = g_initialised * 10 + 1;
  g_argumentsSeen = argc == 3 && strcmp(argv[2], "last") == 0;
}

__attribute__((constructor)) static void second(void) {
  g_initialised = g_initialised * 10 + 2;
}

static int countMany(void) {
  int right = 0;
  const int entries = sizeof g_many / sizeof g_many[0];
  for (int i = 0; i < entries; i++) right += g_many[i] == (i < entries - 1 ? g_text : g_text + 4);
  return right;
}

int main(int argc, char **argv, char **envp, char **apple) {
  fprintf(*g_output, "%s, %s, %s\n", g_own[0], g_own[1], g_own[2]);
  printf("%d %d\n", (int)g_lengths[0]("four"), g_lengths[1] == strlen);
  printf("%d\n", (int)((const char *)g_behindOutput - (const char *)g_output));
  printf("initialised %d, arguments %d\n", g_initialised, g_argumentsSeen);
  printf("many %d\n", countMany());
  printf("missing %d\n", perhaps_nowhere == 0);
  int zeros = 0;
  for (size_t i = 0; i < sizeof g_zeros; i++) zeros += g_zeros[i] == 0;
  g_zeros[sizeof g_zeros - 1] = 1;
  printf("zeros %d\n", zeros);
  printf("away %d\n", (unsigned long)(void *)&main < 0x100000000ul ||
                          (unsigned long)(void *)&main >= 0x101000000ul);
  printf("%d %s %s\n", argc, argv[1], argv[2]);
  printf("environment %d\n", envp[0] != 0);
  printf("%.16s\n", apple[0]);
  return 7;
}
