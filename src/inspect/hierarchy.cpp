#include "inspect/hierarchy.h"

#include <stdio.h>
#include <stdlib.h>

#include "proc/first_slot.h"
#include "state/display.h"
#include "terminal/output.h"
#include "text/safe_text.h"

namespace sondex {

constexpr int32_t kNone = -1;

// What of a record the tree is made from. Records lie far apart in memory: each is looked at once.
struct Member {
  int32_t pid;
  int32_t parent;
  int32_t next;  // place of the next record with the same parent
};

// The children of a PID that some records name as their parent.
struct Children {
  bool isUsed;
  int32_t parent;
  int32_t first;
};

// A process on the way down from the root.
struct Level {
  int32_t nextChild;
  bool isLast;
};

struct Tree {
  const ProcessRecord *table;
  Member *members;
  Children *families;  // open addressing by the parent's PID
  uint32_t mask;       // slots of `families` - 1; a power of two
  Level *levels;       // as many as there are members, and the root
};

static Children *childrenOf(const Tree *tree, int32_t parent) {
  uint32_t slot = firstSlot(static_cast<uint32_t>(parent), tree->mask);
  while (tree->families[slot].isUsed && tree->families[slot].parent != parent) {
    slot = (slot + 1) & tree->mask;
  }
  return &tree->families[slot];
}

// Nobody is met twice: neither in a circle of parents nor under two records of one PID.
static int32_t takeChildren(Tree *tree, int32_t parent) {
  Children *children = childrenOf(tree, parent);
  if (!children->isUsed) return kNone;
  const int32_t first = children->first;
  children->first = kNone;
  return first;
}

static void addChild(Tree *tree, int32_t place) {
  Member *child = &tree->members[place];
  Children *siblings = childrenOf(tree, child->parent);
  if (!siblings->isUsed) *siblings = {true, child->parent, kNone};
  child->next = siblings->first;
  siblings->first = place;
}

static void releaseTree(Tree *tree) {
  free(tree->members);
  free(tree->families);
  free(tree->levels);
}

static bool reserveTree(Tree *tree, size_t count) {
  size_t slots = 16;
  while (slots < count * 2) slots *= 2;
  tree->mask = static_cast<uint32_t>(slots - 1);
  tree->members = static_cast<Member *>(calloc(count + 1, sizeof(Member)));
  tree->families = static_cast<Children *>(calloc(slots, sizeof(Children)));
  tree->levels = static_cast<Level *>(calloc(count + 1, sizeof(Level)));
  if (tree->members != nullptr && tree->families != nullptr && tree->levels != nullptr) return true;
  releaseTree(tree);
  return false;
}

static void growTree(Tree *tree, int32_t count, int32_t root) {
  int32_t placeOfRoot = kNone;
  for (int32_t i = 0; i < count; i++) {
    const ProcessRecord *record = &tree->table[i];
    const int32_t parent = static_cast<int32_t>(record->taskAllInfo.pbsd.pbi_ppid);
    tree->members[i] = {pidOf(record), parent, kNone};
    if (placeOfRoot == kNone && tree->members[i].pid == root) placeOfRoot = i;
  }
  // From the end, as each comes before those that its parent has already.
  for (int32_t i = count - 1; i >= 0; i--) {
    if (i != placeOfRoot) addChild(tree, i);
  }
}

static void printProcess(const ProcessRecord *record, const char *end) {
  const auto &command = record->taskAllInfo.pbsd.pbi_comm;
  char name[sizeof command + 1];
  outputFormatted(0, " %-5d %s%s", pidOf(record),
                  makeSafe(name, sizeof name, command, sizeof command), end);
}

// The line of a child of the process at `depth`. Kept: only the innermost mark depends on whether
// its parent was a last child; above it, the line of an ancestor goes on even below its last child.
static void printChild(const ProcessRecord *child, int32_t depth, bool parentIsLast, bool isLast) {
  for (int32_t k = 0; k < depth; k++) {
    const bool goesOn = load(wantCurses) == 0 || !parentIsLast || k < depth - 1;
    if (goesOn) {
      outputSeparator();
    } else {
      output(" ", 0);
    }
    output("   ", 0);
  }
  outputBranch(isLast);
  printProcess(child, "\n");
}

static void printDescendants(Tree *tree, int32_t depth, Level root) {
  tree->levels[0] = root;
  for (int32_t level = 0; level >= 0;) {
    Level *parent = &tree->levels[level];
    const int32_t place = parent->nextChild;
    if (place == kNone) {
      level--;
      continue;
    }
    const Member *child = &tree->members[place];
    const bool isLast = child->next == kNone;
    parent->nextChild = child->next;
    printChild(&tree->table[place], depth + level, parent->isLast, isLast);
    tree->levels[++level] = {takeChildren(tree, child->pid), isLast};
  }
}

void showProcessHierarchy(const ProcessRecord *root, const ProcessRecord *table, int32_t count,
                          int32_t depth, int32_t isLast) {
  if (table == nullptr) return;
  Tree tree = {table, nullptr, nullptr, 0, nullptr};
  const int32_t members = count > 0 ? count : 0;
  if (!reserveTree(&tree, static_cast<size_t>(members))) {
    perror("malloc");
    return;
  }
  growTree(&tree, members, pidOf(root));
  const int32_t first = takeChildren(&tree, pidOf(root));
  if (depth == 0) {
    printProcess(root, " ");
    output(first == kNone ? " has no children\n" : "\n ", 0);
  }
  printDescendants(&tree, depth, {first, isLast != 0});
  releaseTree(&tree);
}

}  // namespace sondex
