#include "inspect/hierarchy.h"

#include <stdio.h>
#include <stdlib.h>

#include "proc/hash_index.h"
#include "state/display.h"
#include "terminal/output.h"
#include "text/safe_text.h"

namespace sondex {

// What of a record the tree is made from. Records lie far apart in memory: each is looked at once.
struct Member {
  int32_t pid;
  int32_t next;         // place of the next record with the same parent
  int32_t lastSibling;  // of a first child, until its parent's children are taken
};

// A process on the way down from the root.
struct Level {
  int32_t nextChild;
  bool isLast;
};

struct Tree {
  const ProcessRecord *table;
  Member *members;
  HashIndex *firstChildren;  // by the parent's PID
  Level *levels;             // as many as there are members, and the root
};

// Nobody is met twice: neither in a circle of parents nor under two records of one PID.
static int32_t takeChildren(Tree *tree, int32_t parent) {
  const int32_t first = placeOf(tree->firstChildren, static_cast<uint64_t>(parent));
  if (first == kNoPlace || tree->members[first].lastSibling == kNoPlace) return kNoPlace;
  tree->members[first].lastSibling = kNoPlace;
  return first;
}

static void addChild(Tree *tree, int32_t place, int32_t parent) {
  const int32_t first = enterPlace(tree->firstChildren, static_cast<uint64_t>(parent), place);
  int32_t *last = &tree->members[first].lastSibling;
  if (first != place) tree->members[*last].next = place;
  *last = place;
}

static void releaseTree(Tree *tree) {
  free(tree->members);
  releaseHashIndex(tree->firstChildren);
  free(tree->levels);
}

static bool reserveTree(Tree *tree, size_t count) {
  tree->members = static_cast<Member *>(calloc(count + 1, sizeof(Member)));
  tree->firstChildren = makeHashIndex(count);
  tree->levels = static_cast<Level *>(calloc(count + 1, sizeof(Level)));
  if (tree->members != nullptr && tree->firstChildren != nullptr && tree->levels != nullptr) {
    return true;
  }
  releaseTree(tree);
  return false;
}

static void growTree(Tree *tree, int32_t count, int32_t root) {
  bool hasRoot = false;
  for (int32_t i = 0; i < count; i++) {
    const ProcessRecord *record = &tree->table[i];
    tree->members[i] = {pidOf(record), kNoPlace, kNoPlace};
    const bool isRoot = !hasRoot && pidOf(record) == root;
    hasRoot = hasRoot || isRoot;
    if (!isRoot) addChild(tree, i, static_cast<int32_t>(record->taskAllInfo.pbsd.pbi_ppid));
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
    if (place == kNoPlace) {
      level--;
      continue;
    }
    const Member *child = &tree->members[place];
    const bool isLast = child->next == kNoPlace;
    parent->nextChild = child->next;
    printChild(&tree->table[place], depth + level, parent->isLast, isLast);
    tree->levels[++level] = {takeChildren(tree, child->pid), isLast};
  }
}

void showProcessHierarchy(const ProcessRecord *root, TableView table, int32_t depth,
                          int32_t isLast) {
  if (table.records == nullptr) return;
  Tree tree = {table.records, nullptr, nullptr, nullptr};
  const int32_t members = table.count > 0 ? table.count : 0;
  if (!reserveTree(&tree, static_cast<size_t>(members))) {
    perror("malloc");
    return;
  }
  growTree(&tree, members, pidOf(root));
  const int32_t first = takeChildren(&tree, pidOf(root));
  if (depth == 0) {
    printProcess(root, " ");
    output(first == kNoPlace ? " has no children\n" : "\n ", 0);
  }
  printDescendants(&tree, depth, {first, isLast != 0});
  releaseTree(&tree);
}

}  // namespace sondex
